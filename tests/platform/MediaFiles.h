// Test media made on demand with the ffmpeg command-line tool, cached in the test's working folder.
#ifndef KY_TEST_MEDIA_FILES_H
#define KY_TEST_MEDIA_FILES_H

#include <string>

namespace testmedia {

/* Runs `ffmpeg -v error -y <arguments> <name>` unless <name> already exists in the working folder;
 * returns the file's absolute path, or an empty string when ffmpeg failed. */
std::string make(const std::string& name, const std::string& arguments);

}  // namespace testmedia

#endif
