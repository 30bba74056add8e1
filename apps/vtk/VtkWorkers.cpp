#include "VtkWorkers.h"

#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstring>
#include <string>
#include <vector>

extern "C" {
#include <lauxlib.h>
#include <lua.h>
}

extern char** environ;

namespace {

// A message on a pipe is its length in decimal, a newline, then its bytes. Items are paths and
// results are records: a message past this size means the other side is not a vtk of ours.
constexpr size_t kLargestMessage = 64 << 20;
constexpr size_t kReadChunk = 64 << 10;

bool writeAll(int descriptor, const std::string& bytes) {
    size_t done = 0;
    while (done < bytes.size()) {
        const ssize_t n = write(descriptor, bytes.data() + done, bytes.size() - done);
        if (n < 0 && errno == EINTR) continue;
        if (n <= 0) return false;
        done += static_cast<size_t>(n);
    }
    return true;
}

bool sendMessage(int descriptor, const std::string& payload) {
    return writeAll(descriptor, std::to_string(payload.size()) + "\n" + payload);
}

enum class Take { kMessage, kIncomplete, kMalformed };

// Takes the first whole message off the front of buffer.
Take takeMessage(std::string* buffer, std::string* payload) {
    const size_t newline = buffer->find('\n');
    if (newline == std::string::npos) return buffer->size() > 20 ? Take::kMalformed : Take::kIncomplete;
    size_t length = 0;
    for (size_t i = 0; i < newline; ++i) {
        const char c = (*buffer)[i];
        if (c < '0' || c > '9' || length > kLargestMessage) return Take::kMalformed;
        length = length * 10 + static_cast<size_t>(c - '0');
    }
    if (newline == 0 || length > kLargestMessage) return Take::kMalformed;
    if (buffer->size() - newline - 1 < length) return Take::kIncomplete;
    payload->assign(*buffer, newline + 1, length);
    buffer->erase(0, newline + 1 + length);
    return Take::kMessage;
}

// Reads what is there into buffer: false at the end of the stream or on an error.
bool readSome(int descriptor, std::string* buffer) {
    char chunk[kReadChunk];
    for (;;) {
        const ssize_t n = read(descriptor, chunk, sizeof chunk);
        if (n < 0 && errno == EINTR) continue;
        if (n <= 0) return false;
        buffer->append(chunk, static_cast<size_t>(n));
        return true;
    }
}

std::string howItEnded(int status) {
    if (WIFSIGNALED(status)) {
        return "the worker was killed by signal " + std::to_string(WTERMSIG(status)) + " (" + strsignal(WTERMSIG(status)) + ")";
    }
    if (WIFEXITED(status)) return "the worker exited with status " + std::to_string(WEXITSTATUS(status));
    return "the worker ended";
}

struct Worker {
    pid_t pid = -1;
    int input = -1;   // the worker's standard input: items go there
    int output = -1;  // the worker's standard output: results come from there
    int item = 0;     // the item it works on, 0 when idle
    std::string buffer;
};

class WorkerPool {
public:
    WorkerPool(std::vector<std::string> arguments) : arguments_(std::move(arguments)) {
        struct sigaction ignore {};
        ignore.sa_handler = SIG_IGN;
        // A worker that died takes its pipe with it: a write to it must fail, not kill vtk.
        sigaction(SIGPIPE, &ignore, &previousPipeAction_);
    }
    ~WorkerPool() {
        for (Worker& worker : workers_) {
            if (worker.pid > 0 && worker.item != 0) kill(worker.pid, SIGKILL);
            finish(&worker);
        }
        sigaction(SIGPIPE, &previousPipeAction_, nullptr);
    }

    std::vector<Worker>& workers() { return workers_; }

    // Starts a worker in the slot; the reason when it cannot be started.
    std::string start(Worker* worker) {
        int toWorker[2];
        int fromWorker[2];
        if (pipe2(toWorker, O_CLOEXEC) != 0) return std::strerror(errno);
        if (pipe2(fromWorker, O_CLOEXEC) != 0) {
            const int error = errno;
            close(toWorker[0]);
            close(toWorker[1]);
            return std::strerror(error);
        }
        posix_spawn_file_actions_t actions;
        posix_spawn_file_actions_init(&actions);
        posix_spawn_file_actions_adddup2(&actions, toWorker[0], STDIN_FILENO);
        posix_spawn_file_actions_adddup2(&actions, fromWorker[1], STDOUT_FILENO);
        std::vector<char*> argv;
        static char program[] = "/proc/self/exe";
        argv.push_back(program);
        for (std::string& argument : arguments_) argv.push_back(argument.data());
        argv.push_back(nullptr);
        pid_t pid = -1;
        const int error = posix_spawn(&pid, program, &actions, nullptr, argv.data(), environ);
        posix_spawn_file_actions_destroy(&actions);
        close(toWorker[0]);
        close(fromWorker[1]);
        if (error != 0) {
            close(toWorker[1]);
            close(fromWorker[0]);
            return std::strerror(error);
        }
        *worker = Worker{pid, toWorker[1], fromWorker[0], 0, {}};
        return {};
    }

    // Closes the worker's pipes and waits for it; how it ended.
    static std::string finish(Worker* worker) {
        if (worker->input >= 0) close(worker->input);
        if (worker->output >= 0) close(worker->output);
        worker->input = worker->output = -1;
        int status = 0;
        std::string ending;
        if (worker->pid > 0) {
            while (waitpid(worker->pid, &status, 0) < 0 && errno == EINTR) {
            }
            ending = howItEnded(status);
        }
        worker->pid = -1;
        return ending;
    }

private:
    std::vector<std::string> arguments_;
    std::vector<Worker> workers_;
    struct sigaction previousPipeAction_ {};
};

std::string itemAt(lua_State* L, int table, int index) {
    lua_rawgeti(L, table, index);
    size_t length = 0;
    const char* text = lua_tolstring(L, -1, &length);
    std::string item = text != nullptr ? std::string(text, length) : std::string();
    lua_pop(L, 1);
    return item;
}

// Calls onResult(index, result) or onResult(index, nil, reason); false with the error on the
// stack when it raised.
bool report(lua_State* L, int index, const std::string* result, const std::string& reason) {
    lua_pushvalue(L, 4);
    lua_pushinteger(L, index);
    if (result != nullptr) {
        lua_pushlstring(L, result->data(), result->size());
        lua_pushnil(L);
    } else {
        lua_pushnil(L);
        lua_pushlstring(L, reason.data(), reason.size());
    }
    return lua_pcall(L, 3, 0, 0) == 0;
}

int runWorkers(lua_State* L) {
    const int jobs = static_cast<int>(luaL_checkinteger(L, 1));
    luaL_checktype(L, 2, LUA_TTABLE);
    luaL_checktype(L, 3, LUA_TTABLE);
    luaL_checktype(L, 4, LUA_TFUNCTION);
    luaL_argcheck(L, jobs >= 1, 1, "at least one worker");
    std::vector<std::string> arguments;
    for (int i = 1; i <= static_cast<int>(lua_objlen(L, 2)); ++i) arguments.push_back(itemAt(L, 2, i));
    const int count = static_cast<int>(lua_objlen(L, 3));

    std::string failure;
    bool raised = false;
    {
        WorkerPool pool(arguments);
        pool.workers().resize(static_cast<size_t>(std::min(jobs, count)));
        int next = 1;
        int done = 0;
        auto assign = [&](Worker* worker) {
            if (next > count) {
                if (worker->input >= 0) close(worker->input);
                worker->input = -1;
                return;
            }
            worker->item = next++;
            sendMessage(worker->input, itemAt(L, 3, worker->item));
        };
        for (Worker& worker : pool.workers()) {
            failure = pool.start(&worker);
            if (!failure.empty()) break;
            assign(&worker);
        }
        while (failure.empty() && !raised && done < count) {
            std::vector<pollfd> waiting;
            std::vector<Worker*> owners;
            for (Worker& worker : pool.workers()) {
                if (worker.item == 0) continue;
                waiting.push_back({worker.output, POLLIN, 0});
                owners.push_back(&worker);
            }
            if (poll(waiting.data(), waiting.size(), -1) < 0) {
                if (errno == EINTR) continue;
                failure = std::strerror(errno);
                break;
            }
            for (size_t i = 0; i < waiting.size() && !raised && failure.empty(); ++i) {
                if (waiting[i].revents == 0) continue;
                Worker* worker = owners[i];
                const int item = worker->item;
                std::string payload;
                Take take = Take::kIncomplete;
                if (readSome(worker->output, &worker->buffer)) take = takeMessage(&worker->buffer, &payload);
                else take = Take::kMalformed;
                if (take == Take::kIncomplete) continue;
                ++done;
                worker->item = 0;
                if (take == Take::kMessage) {
                    raised = !report(L, item, &payload, {});
                    if (!raised) assign(worker);
                    continue;
                }
                // The worker ended, or said something that is no message: it is replaced.
                kill(worker->pid, SIGKILL);
                const std::string ending = WorkerPool::finish(worker);
                raised = !report(L, item, nullptr, ending);
                if (!raised && next <= count) {
                    failure = pool.start(worker);
                    if (failure.empty()) assign(worker);
                }
            }
        }
    }
    if (raised) return lua_error(L);
    if (!failure.empty()) return luaL_error(L, "cannot start a worker: %s", failure.c_str());
    return 0;
}

int serveWork(lua_State* L) {
    luaL_checktype(L, 1, LUA_TFUNCTION);
    const int results = fcntl(STDOUT_FILENO, F_DUPFD_CLOEXEC, 3);
    if (results < 0) return luaL_error(L, "cannot keep standard output for results: %s", std::strerror(errno));
    std::fflush(stdout);
    dup2(STDERR_FILENO, STDOUT_FILENO);
    std::string buffer;
    std::string item;
    bool open = true;
    while (open) {
        const Take take = takeMessage(&buffer, &item);
        if (take == Take::kMalformed) return luaL_error(L, "a work item that is no message");
        if (take == Take::kIncomplete) {
            open = readSome(STDIN_FILENO, &buffer);
            continue;
        }
        lua_pushvalue(L, 1);
        lua_pushlstring(L, item.data(), item.size());
        lua_call(L, 1, 1);
        size_t length = 0;
        const char* result = luaL_checklstring(L, -1, &length);
        if (!sendMessage(results, std::string(result, length))) {
            return luaL_error(L, "cannot send a result: %s", std::strerror(errno));
        }
        lua_pop(L, 1);
    }
    close(results);
    return 0;
}

}  // namespace

const luaL_Reg kVtkWorkerFunctions[] = {
    {"runWorkers", runWorkers},
    {"serveWork", serveWork},
    {nullptr, nullptr},
};
