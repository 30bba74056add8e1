/* The host of the fuzz targets that run the toolkit's Lua: one KyHost over the built bundle
 * (beside the program, as for vtk), made at the first call and kept until the process ends. */
#ifndef VIDEO_TOOLKIT_FUZZ_HOST_H
#define VIDEO_TOOLKIT_FUZZ_HOST_H

#include "KyHost.h"

lua_State* fuzzHostState();

/* Runs the Lua source in that host and keeps its first result in the registry; returns the
 * reference (luaL_ref). A failure is the harness's, not the input's: it aborts with the reason. */
int fuzzHostKeep(const char* source);

#endif
