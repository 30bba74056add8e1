/* The natives of VideoSupport: Lua C functions that inspect one file per call, on the thread of L.
 * They raise no error for a failure of media work: each reports it in its own shape.
 *   getVideoFileInfo(path) -> table of properties, or {error_message = text}
 *   getPosterFrame(path)   -> image, {displayWidth, displayHeight, videoRotation}; or nil, {error_message}
 *   getMetadata(path)      -> true, XMP packet; or message, false */
#ifndef VIDEO_TOOLKIT_VIDEO_SUPPORT_NATIVES_H
#define VIDEO_TOOLKIT_VIDEO_SUPPORT_NATIVES_H

#include "KyKernel.h"

int VideoSupport_getVideoFileInfo_L(lua_State* L);
int VideoSupport_getPosterFrame_L(lua_State* L);
int VideoSupport_getMetadata_L(lua_State* L);

#endif
