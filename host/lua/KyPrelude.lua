-- The host's globals: import, export, ZSTR, WIN_ENV, MAC_ENV, and the reading of a bundle's
-- manifest. Run once per state with the table of host module loaders; returns the host's hooks.
local hostModules = ...

WIN_ENV = true
MAC_ENV = false

local loaded = {}
local LOADING = {}
local bundleExports = {}

-- export(name)(module) publishes a module; a chunk that the bundle holds but its manifest does
-- not list delivers its module this way.
function export(name)
    assert(type(name) == "string", "export: module name must be a string")
    return function(module)
        loaded[name] = module
    end
end

local function runBundleChunk(fileName)
    local bytes = _BUNDLE and _BUNDLE:getResourceByName(fileName)
    if not bytes then
        error("import: the toolkit has no chunk '" .. fileName .. "'", 0)
    end
    local chunk, message = loadstring(bytes, "=" .. fileName)
    if not chunk then
        error("import: " .. message, 0)
    end
    return chunk()
end

local function resolve(name)
    local loader = hostModules[name]
    if loader then
        return loader(name)
    end
    local place = bundleExports[name]
    if type(place) == "string" then
        local exportName = string.match(place, "^C:(.+)$")
        if exportName then
            local native = _BUNDLE:getCFunction(exportName)
            if not native then
                error("import: the toolkit exports no function '" .. exportName .. "' for '" .. name .. "'", 0)
            end
            return native()
        end
        return runBundleChunk(place)
    end
    if _BUNDLE and _BUNDLE:hasResource(name .. ".lua") then
        return runBundleChunk(name .. ".lua")
    end
    error("import: no module named '" .. name .. "'", 0)
end

-- import(name): a host module, a module the manifest lists, or one an unlisted chunk of the
-- bundle named "<name>.lua" exports. Each is loaded once per state.
function import(name)
    if type(name) ~= "string" then
        error("import: module name must be a string, not " .. type(name), 0)
    end
    local module = loaded[name]
    if module == LOADING then
        error("import: '" .. name .. "' imports itself while loading", 0)
    elseif module ~= nil then
        return module
    end
    loaded[name] = LOADING
    local ok, result = pcall(resolve, name)
    if not ok then
        loaded[name] = nil
        error(result, 0)
    end
    if result == nil and loaded[name] ~= LOADING then
        result = loaded[name]
    end
    if result == nil then
        loaded[name] = nil
        error("import: '" .. name .. "' delivered no module", 0)
    end
    loaded[name] = result
    return result
end

-- ZSTR("$$$/Path/Name=Default text", ...): this host has no translations, so the default text,
-- with ^1 .. ^9 standing for the further arguments.
function ZSTR(key, ...)
    assert(type(key) == "string", "ZSTR: key must be a string")
    local text = string.match(key, "^%$%$%$[^=]*=(.*)$") or key
    local args = { ... }
    return (string.gsub(text, "%^(%d)", function(digit)
        local value = args[tonumber(digit)]
        if value == nil then
            return ""
        end
        return tostring(value)
    end))
end

local hooks = {}

-- Publishes the bundle as _BUNDLE and reads its manifest, which runs with no globals; the manifest
-- is then the host module KyToolkitInfo.
function hooks.setBundle(bundle)
    local bytes = bundle:getResourceByName("Info.lua")
    if not bytes then
        error("the bundle has no manifest (Info.lua)", 0)
    end
    local chunk, message = loadstring(bytes, "=Info.lua")
    if not chunk then
        error("manifest: " .. message, 0)
    end
    setfenv(chunk, {})
    local ok, manifest = pcall(chunk)
    if not ok then
        error("manifest: " .. tostring(manifest), 0)
    end
    if type(manifest) ~= "table" or type(manifest.KyExports) ~= "table" then
        error("manifest: Info.lua must return a table with KyExports", 0)
    end
    _BUNDLE = bundle
    bundleExports = manifest.KyExports
    loaded.KyToolkitInfo = manifest
    return manifest
end

return hooks
