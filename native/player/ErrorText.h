/* errorText: the wide text of a failure code, as the system words it, without its line end; a
 * code the system has no text for gets a generic one that names the code. Any thread. */
#ifndef VIDEO_TOOLKIT_ERROR_TEXT_H
#define VIDEO_TOOLKIT_ERROR_TEXT_H

#include <string>

#include "PlatformTypes.h"

std::wstring errorText(HRESULT code);

#endif
