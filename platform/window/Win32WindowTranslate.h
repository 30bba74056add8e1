// SDL events as the Win32 messages of this layer's windows.
#ifndef KY_WIN32_WINDOW_TRANSLATE_H
#define KY_WIN32_WINDOW_TRANSLATE_H

#include <SDL.h>

#include "Win32Window.h"

namespace kywindow {

/* Main thread. The message an SDL event stands for; false for events of no window of this layer
 * and for those with no Win32 counterpart. */
bool translateEvent(const SDL_Event& event, MSG* message);

/* The virtual-key code of an SDL key, 0 for keys without one here. */
UINT virtualKeyOf(SDL_Keycode key);

}  // namespace kywindow

#endif
