// The file system as vtk's commands need it, beyond what Lua's io library says: inputs checked
// without blocking, outputs written safely, and files told apart by identity. Lua functions for
// the vtkHost table; each returns nil and the system's reason ("No space left on device") on
// failure. Main thread.
#ifndef VTK_FILES_H
#define VTK_FILES_H

struct lua_State;
struct luaL_Reg;

/* inputProblem(path): nil for a regular file that can be read, else why not. A FIFO, socket,
 * device or folder is refused at once: the file is opened without blocking, then examined.
 * writeFile(path, bytes): true, written through KySafeFile.
 * identity(path): "device:inode" of an existing file (links followed), or nil.
 * makeFolders(path): true once path is a folder, made with its parents where missing.
 * isFolder(path): whether path is a folder (links followed).
 * filesUnder(folder): the regular files in the folder's tree, sorted by path; linked folders are
 * not entered, unreadable subfolders passed by.
 * cores(): the number of processors online. */
extern const luaL_Reg kVtkFileFunctions[];

#endif
