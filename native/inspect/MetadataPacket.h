/* metadataPacket: the camera metadata of a video file as the toolkit's XMP packet, in the ANSI
 * code page. Eight properties are read from the file's property store as text (each lookup opens
 * the file on its own, and one that cannot be read reads as "not found"); the duration and
 * rotation come from info, as a reader found them. No Lua; runs on the calling thread. */
#ifndef VIDEO_TOOLKIT_METADATA_PACKET_H
#define VIDEO_TOOLKIT_METADATA_PACKET_H

#include <string>

#include "VideoStreamInfo.h"

std::string metadataPacket(const std::wstring& path, const VideoStreamInfo& info);

#endif
