-- Batches: the inputs of info, poster and xmp (operands, folders with -r, lists with
-- --files-from), their outputs, and the work on each in this process or in worker processes,
-- with results written in input order as text, one JSON array (--json) or JSON lines (--jsonl).
-- Every input gives a record; one that fails gives { path, error } and a line on standard error.
local Records, Options = ...

local M = {}

-- The options every batch command takes, and their one-letter forms.
M.options = { jobs = true, recursive = false, ["files-from"] = true, json = false, jsonl = false, quiet = false }
M.aliases = { j = "jobs", r = "recursive", q = "quiet", o = "output" }

-- The file names a folder stands for with -r, by extension (any case).
M.extensions = {
    "3g2", "3gp", "asf", "avi", "dv", "flv", "m2ts", "m2v", "m4v", "mkv", "mov", "mp4", "mpeg", "mpg",
    "mts", "mxf", "ogv", "qt", "ts", "vob", "webm", "wmv", "y4m",
}

M.optionsHelp = [[
-j, --jobs N        files worked on at once, each in a process of its own (default: the number
                    of cores); results come out in input order whatever finishes first.
-r, --recursive     a folder stands for the video files in its tree, sorted by path; video
                    files by extension, in any case:
                    ]] .. table.concat(M.extensions, " ", 1, 14) .. "\n                    "
    .. table.concat(M.extensions, " ", 15) .. [[

--files-from FILE   also read paths from FILE, one per line ('-': standard input).
--json              one JSON array of records, each with "path" first; a file that failed gives
                    {"path": ..., "error": ...}.
--jsonl             the same records, one per line, each written as soon as it and all before it
                    are done.
-q, --quiet         no progress line (shown on standard error only when it is a terminal).
--                  ends the options: every word after it is a PATH.
JSON is UTF-8; a byte of a name that is not UTF-8 is written \udcXX (XX its value), which
Python's json with .encode("utf-8", "surrogateescape") turns back into the name's bytes.
Exit status: 0 when every input succeeded, 1 when any failed, 2 for a usage error.]]

local kVideoExtension = {}
for _, extension in ipairs(M.extensions) do
    kVideoExtension[extension] = true
end

local function isVideoName(path)
    local extension = string.match(path, "%.([^./]+)$")
    return extension ~= nil and kVideoExtension[string.lower(extension)] == true
end

local function linesOf(path)
    local file, message = io.stdin, nil
    if path ~= "-" then
        file, message = io.open(path, "rb")
    end
    if not file then
        Options.usageError("--files-from: " .. message)
    end
    local lines = {}
    for line in file:lines() do
        line = string.gsub(line, "\r$", "")
        if line ~= "" then
            table.insert(lines, line)
        end
    end
    if file ~= io.stdin then
        file:close()
    end
    return lines
end

-- The inputs, each { path = ..., name = its output's name without extension }: a file by its
-- base name, a file found under a folder by its path below that folder.
function M.inputs(options, words)
    local paths = {}
    for _, word in ipairs(words) do
        table.insert(paths, word)
    end
    if options["files-from"] then
        for _, line in ipairs(linesOf(options["files-from"])) do
            table.insert(paths, line)
        end
    end
    local inputs = {}
    for _, path in ipairs(paths) do
        local found = options.recursive and vtkHost.isFolder(path) and vtkHost.filesUnder(path)
        if found then
            local root = string.gsub(path, "/+$", "")
            for _, file in ipairs(found) do
                if isVideoName(file) then
                    local below = string.sub(file, #root + 2)
                    table.insert(inputs, { path = file, name = (string.gsub(below, "%.[^./]*$", "")) })
                end
            end
        else
            local base = string.match(path, "([^/]+)/*$") or path
            table.insert(inputs, { path = path, name = (string.gsub(base, "%.[^./]*$", "")) })
        end
    end
    return inputs
end

-- Gives each input its output: -o names the file for a single input and a folder for several.
-- Outputs that would overwrite an input, or each other, are refused before any work is done.
function M.planOutputs(output, inputs, extension)
    if not output then
        return
    end
    local single = #inputs == 1 and not vtkHost.isFolder(output)
    local byIdentity, taken = {}, {}
    for _, input in ipairs(inputs) do
        byIdentity[vtkHost.identity(input.path) or input.path] = input.path
    end
    for _, input in ipairs(inputs) do
        local target = single and output or (string.gsub(output, "/+$", "") .. "/" .. input.name .. extension)
        local key = vtkHost.identity(target) or (string.gsub(target, "/+", "/"))
        if byIdentity[key] then
            Options.usageError(target .. ": would overwrite the input " .. byIdentity[key])
        end
        if taken[key] then
            Options.usageError(target .. ": both " .. taken[key] .. " and " .. input.path .. " would write it")
        end
        taken[key] = input.path
        input.output = target
    end
end

-- One line, whatever the reason held.
local function reasonText(failure)
    local text = import("KyErrors").message(failure) or tostring(failure)
    return (string.gsub(string.gsub(text, "[\r\n]+$", ""), "[\r\n]+", " "))
end

-- The record of one input: work(input, options) returns the record's fields after "path", or
-- raises; { output = path, reason = text } raised or returned names an output that failed.
function M.attempt(work, input, options)
    local problem = vtkHost.inputProblem(input.path)
    if problem then
        local hint = problem == "Is a directory" and not options.recursive and " (-r takes the video files in it)" or ""
        return Records.record("path", input.path, "error", problem .. hint)
    end
    local ok, result = pcall(work, input, options)
    if ok and not result.reason then
        table.insert(result.keys, 1, "path")
        result.path = input.path
        return result
    end
    if type(result) == "table" and result.reason then
        return Records.record("path", input.path, "error", result.reason, "output", result.output)
    end
    return Records.record("path", input.path, "error", reasonText(result))
end

-- Runs a batch: batch = { command = name, options = ..., inputs = ..., work = function, text =
-- function(record, index, count) }. The exit status.
function M.run(batch)
    local inputs, options = batch.inputs, batch.options
    local count = #inputs
    local jobs = options.jobs and Options.integer(options.jobs, "--jobs", 1, 256) or vtkHost.cores()
    local progress = count > 1 and not options.quiet and vtkHost.isTerminal(2)
    local failed, done, nextOut, results = 0, 0, 1, {}
    local function clearProgress()
        if progress then
            io.stderr:write("\r\27[K")
        end
    end
    local function emit(index, record)
        if record.error then
            failed = failed + 1
            io.stderr:write("vtk: ", record.output or record.path, ": ", record.error, "\n")
        end
        if options.json then
            io.stdout:write(Records.json(record), index < count and ",\n" or "\n")
        elseif options.jsonl then
            io.stdout:write(Records.json(record), "\n")
        elseif not record.error then
            batch.text(record, index, count)
        end
    end
    local function arrived(index, record)
        results[index] = record
        done = done + 1
        clearProgress()
        while results[nextOut] do
            emit(nextOut, results[nextOut])
            results[nextOut] = nil
            nextOut = nextOut + 1
        end
        io.stdout:flush()
        if progress and done < count then
            io.stderr:write(string.format("[%d/%d] %s", done, count, inputs[math.min(nextOut, count)].path))
        end
    end
    if options.json then
        io.stdout:write(count > 0 and "[\n" or "[")
    end
    if jobs > 1 and count > 1 then
        local items = {}
        for i, input in ipairs(inputs) do
            items[i] = Records.serialize(input)
        end
        local workerArgs = { "--worker", batch.command, Records.serialize(options) }
        vtkHost.runWorkers(jobs, workerArgs, items, function(index, text, reason)
            arrived(index, text and Records.deserialize(text) or Records.record("path", inputs[index].path, "error", reason))
        end)
    else
        for i, input in ipairs(inputs) do
            arrived(i, M.attempt(batch.work, input, options))
        end
    end
    if options.json then
        io.stdout:write("]\n")
    end
    clearProgress()
    return failed == 0 and 0 or 1
end

-- The worker's side of run: records for the inputs its parent sends.
function M.serve(work, options)
    vtkHost.serveWork(function(item)
        return Records.serialize(M.attempt(work, Records.deserialize(item), options))
    end)
    return 0
end

return M
