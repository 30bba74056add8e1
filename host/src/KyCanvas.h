// A canvas: B, G, R, A pixels with straight alpha, rows top-down, that Lua draws (KyCanvas.cpp).
#ifndef KY_CANVAS_H
#define KY_CANVAS_H

#include <lua.hpp>

#include <cstdint>
#include <vector>

namespace ky {

struct Canvas {
    int width = 0;
    int height = 0;
    std::vector<uint8_t> bgra;
};

// The canvas at the index, else a Lua argument error.
Canvas& checkCanvas(lua_State* L, int index);

}  // namespace ky

#endif
