#include "MediaFiles.h"

#include <unistd.h>

#include <cstdlib>
#include <filesystem>

namespace testmedia {

std::string make(const std::string& name, const std::string& arguments) {
    namespace fs = std::filesystem;
    const fs::path file = fs::absolute(name);
    std::error_code ec;
    if (fs::exists(file, ec)) return file.string();
    // Test cases run as parallel processes: each writes its own file and renames it into place.
    const fs::path partial = file.parent_path() / (file.stem().string() + "." + std::to_string(getpid()) +
                                                   file.extension().string());
    const std::string command = "ffmpeg -nostdin -v error -y " + arguments + " '" + partial.string() + "'";
    if (std::system(command.c_str()) != 0) {
        fs::remove(partial, ec);
        return {};
    }
    fs::rename(partial, file, ec);
    return ec ? std::string() : file.string();
}

}  // namespace testmedia
