// vtk's batches on several cores: worker processes of vtk itself, each taking one item at a time
// from its parent over a pipe and answering with one result. Processes rather than threads: the
// host and its Lua state are one per process, and a file that crashes the toolkit costs one
// worker, not the batch. Lua functions for the vtkHost table. Main thread.
#ifndef VTK_WORKERS_H
#define VTK_WORKERS_H

struct lua_State;
struct luaL_Reg;

/* runWorkers(jobs, args, items, onResult): starts up to `jobs` copies of this program with the
 * strings of `args` as their arguments, hands each item (a string) to the next idle worker and
 * calls onResult(index, result) as results arrive, in the order they finish. A worker that ends
 * without answering gives onResult(index, nil, reason) ("killed by signal 11"), and a new worker
 * takes the items still waiting. Raises when no worker can be started; an error raised by
 * onResult ends the workers and is raised again.
 * serveWork(handler): the worker's side. Standard output is kept for results (anything the
 * program prints goes to standard error instead); each item read from standard input is passed
 * to handler, whose string result goes back. Returns at the end of input. */
extern const luaL_Reg kVtkWorkerFunctions[];

#endif
