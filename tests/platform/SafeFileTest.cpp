// KySafeFile: what a failed write leaves behind, and where a write goes.
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>

#include "KySafeFile.h"

namespace {

std::string contents(const std::string& path) {
    std::ifstream file(path, std::ios::binary);
    std::ostringstream text;
    text << file.rdbuf();
    return text.str();
}

// Files in the test's folder other than the ones named: temporary files left behind.
int leftovers(const std::string& folder) {
    int count = 0;
    for (const auto& entry : std::filesystem::directory_iterator(folder)) {
        count += entry.path().filename().string()[0] == '.' ? 1 : 0;
    }
    return count;
}

class SafeFileTest : public ::testing::Test {
protected:
    void SetUp() override {
        folder = std::filesystem::absolute("safe_file_" + std::to_string(getpid())).string();
        std::filesystem::remove_all(folder);
        std::filesystem::create_directories(folder);
        old = folder + "/old.txt";
        std::ofstream(old) << "old";
    }
    void TearDown() override { std::filesystem::remove_all(folder); }
    std::string folder;
    std::string old;
};

TEST_F(SafeFileTest, AFailureLeavesTheOldFileAndNoTemporary) {
    // Failures at each step: a write refused by the device, a name in a missing folder, a folder.
    struct Case {
        std::string path;
        int error;
    };
    for (const Case& row : {Case{"/dev/full", ENOSPC}, Case{folder + "/missing/new.txt", ENOENT}, Case{folder, EISDIR}}) {
        errno = 0;
        EXPECT_FALSE(KySafeFile_writeAll(row.path, "new", 3)) << row.path;
        EXPECT_EQ(errno, row.error) << row.path;
    }
    {
        KySafeFile unfinished;
        ASSERT_TRUE(unfinished.open(old));
        ASSERT_TRUE(unfinished.write("half", 4));
        EXPECT_EQ(leftovers(folder), 1) << "written beside it";
        EXPECT_EQ(contents(old), "old") << "until commit";
    }
    EXPECT_EQ(contents(old), "old");
    EXPECT_EQ(leftovers(folder), 0) << "destruction without a commit removes the temporary";
}

TEST_F(SafeFileTest, ACommitReplacesTheFileKeepingItsModeAndLinks) {
    chmod(old.c_str(), 0640);
    const std::string link = folder + "/link.txt";
    ASSERT_EQ(symlink("old.txt", link.c_str()), 0);
    ASSERT_TRUE(KySafeFile_writeAll(link, "new", 3));
    EXPECT_EQ(contents(old), "new") << "the link's target is replaced";
    EXPECT_TRUE(std::filesystem::is_symlink(link)) << "and the link kept";
    struct stat info {};
    ASSERT_EQ(stat(old.c_str(), &info), 0);
    EXPECT_EQ(info.st_mode & 07777, 0640u);
    EXPECT_EQ(leftovers(folder), 0);
}

TEST_F(SafeFileTest, ANodeThatIsNoFileIsWrittenDirectlyAndKept) {
    EXPECT_TRUE(KySafeFile_writeAll("/dev/null", "new", 3));
    EXPECT_TRUE(std::filesystem::is_character_file("/dev/null"));
    // A FIFO that nobody reads fails at once instead of blocking.
    const std::string fifo = folder + "/fifo";
    ASSERT_EQ(mkfifo(fifo.c_str(), 0600), 0);
    errno = 0;
    EXPECT_FALSE(KySafeFile_writeAll(fifo, "new", 3));
    EXPECT_EQ(errno, ENXIO);
    EXPECT_TRUE(std::filesystem::is_fifo(fifo));
}

}  // namespace
