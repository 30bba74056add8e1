#include "MediaFiles.h"

#include <cstdlib>
#include <filesystem>

namespace testmedia {

std::string make(const std::string& name, const std::string& arguments) {
    const std::filesystem::path file = std::filesystem::absolute(name);
    std::error_code ec;
    if (std::filesystem::exists(file, ec)) return file.string();
    const std::string command = "ffmpeg -nostdin -v error -y " + arguments + " '" + file.string() + "'";
    if (std::system(command.c_str()) != 0) return {};
    return file.string();
}

}  // namespace testmedia
