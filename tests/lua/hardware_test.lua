-- The hardware report: conversion, rows and sort on descriptions handed in by a stand-in for the
-- host's sniff, then once the real sniff of this machine, checked against lspci and aplay.
local dir = string.match(arg[0], "^(.*)/")
local T = dofile(dir .. "/testlib.lua")
local media = dofile(dir .. "/media_lib.lua")

local Tessera = import("Tessera")
local KyEventLoop = import("KyEventLoop")
local KyObservations = import("KyObservations")
local realSniff, realInited = Tessera.sniffIODevices, Tessera.inited

-- The stand-in keeps the callback; deliver(ok, xml) plays the sniff's end.
local pending
Tessera.sniffIODevices = function(callback) pending = callback end
local function deliver(ok, xml)
    local callback = pending
    pending = nil
    callback(ok, { displayDescription = xml })
end

local SystemAudioVisualInfo = import("SystemAudioVisualInfo")

local function rowsOf(report)
    local rows = {}
    for i, row in ipairs(report) do rows[i] = row[1] .. "=" .. tostring(row[2]) end
    return table.concat(rows, "|")
end

local kTwoAdapters = [[<?xml version="1.0" encoding="utf-8"?>
<configuration>
  <zzz>last but one</zzz>
  <GL_EXTENSIONS>GL_ARB_one GL_ARB_two</GL_EXTENSIONS>
  <Flag>true</Flag><Shout>TRUE</Shout><No>false</No>
  <Half>1.5</Half><Padded>1.50</Padded><Hex>0x10</Hex><Exp>1e3</Exp><Gone>nil</Gone>
  <Adapters>
    <Adapter VendorId="0x10de NVIDIA" DeviceId="0x1b80" SubSysId="0x1043:0x8591" Revision="0xa1" videoMemory="8192 MB"/>
    <Adapter VendorId="0x8086" DeviceId="0x3e92" SubSysId="7" Revision="0x00"/>
  </Adapters>
</configuration>]]

local listened = {}
SystemAudioVisualInfo.whenInfoAvailable(function(t) table.insert(listened, t) end)
SystemAudioVisualInfo.whenInfoAvailable(function() error("a listener that fails") end)

T.case("before the sniff: the placeholder row alone", function()
    local report = SystemAudioVisualInfo.getAvInfo()
    T.eq(rowsOf(report) .. " " .. tostring(report.updated), "Audio and Video info=Loading nil")
    deliver(false)
    T.eq(rowsOf(report) .. " " .. tostring(report.updated), "Audio and Video info=Loading nil",
        "a failed sniff keeps the placeholder and tells no one")
end)

T.case("rows: converted values, one row per adapter, sorted, GL_EXTENSIONS last", function()
    local report = SystemAudioVisualInfo.getAvInfo()
    local told = 0
    KyObservations.addObserver(report, "updated", function(_, _, value) told = told + (value and 1 or 0) end)
    deliver(true, kTwoAdapters)
    T.eq(told .. " " .. tostring(report.updated), "1 true", "observers told")
    T.eq(rowsOf(report), table.concat({
        "Adapter #1=Vendor : 0x10de NVIDIA\r\n\tDevice : 0x1b80\r\n\tSubsystem : 0x1043:0x8591\r\n\tRevision : 0xa1"
            .. "\r\n\tVideo Memory : 8192 MB",
        "Adapter #2=Vendor : 0x8086\r\n\tDevice : 0x3e92\r\n\tSubsystem : 7\r\n\tRevision : 0x00\r\n\tVideo Memory : ",
        "Exp=1e3", "Flag=true", "Half=1.5", "Hex=0x10", "No=false", "Padded=1.50", "Shout=TRUE",
        "zzz=last but one", "GL_EXTENSIONS=GL_ARB_one GL_ARB_two",
    }, "|"))
    for _, row in ipairs(report) do
        if row[1] == "Flag" or row[1] == "No" then T.eq(type(row[2]), "boolean", row[1]) end
        if row[1] == "Half" then T.eq(type(row[2]), "number") end
    end
    T.eq(#listened, 1, "the held listener ran, the failing one did not stop it")
    T.eq(T.tuple(listened[1].Adapters, listened[1].Gone), "nil,nil", "no Adapters field; the text nil disappears")
end)

T.case("a later sniff keeps the rows of former ones; listeners after a sniff run at once", function()
    local report = SystemAudioVisualInfo.getAvInfo()
    deliver(true, [[<configuration><Half>2</Half><Adapters/></configuration>]])
    local text = rowsOf(report)
    assert(string.find(text, "Adapter #2=", 1, true), "the former adapters stay")
    assert(string.find(text, "Half=2|", 1, true), "a key sniffed again takes the new value")
    T.eq(#listened, 2)
    local now
    SystemAudioVisualInfo.whenInfoAvailable(function(t) now = t end)
    T.eq(now and now.Half, 2, "called at once with the last sniff")
    T.raises(function()
        SystemAudioVisualInfo.whenInfoAvailable(function() error("raised to the caller") end)
    end, nil, "raised to the caller")
end)

T.case("a description that does not convert still ends the wait", function()
    for _, xml in ipairs({ "<configuration><A>unclosed</configuration>", '<configuration><A>say "hi"</A></configuration>',
        42 }) do
        local report = SystemAudioVisualInfo.getAvInfo()
        local told = false
        KyObservations.addObserver(report, "updated", function() told = true end)
        deliver(true, xml)
        T.eq(told, true, tostring(xml))
        T.eq(report[1][1], "Audio and Video info", "the placeholder stays: " .. tostring(xml))
    end
end)

T.case("without the engine running there is no sniff", function()
    Tessera.inited = function() return false end
    local report = SystemAudioVisualInfo.getAvInfo()
    T.eq(pending, nil)
    T.eq(rowsOf(report), "Audio and Video info=Loading")
    Tessera.inited = realInited
end)

-- How many different captures of pattern a tool's output holds; nil when the tool is not installed.
local function countDistinct(command, pattern)
    local output, status = media.run(command)
    if status == 127 then return nil end
    local seen, count = {}, 0
    for found in string.gmatch(output, pattern) do
        if not seen[found] then
            seen[found] = true
            count = count + 1
        end
    end
    return count
end

T.case("the real sniff of this machine", function()
    Tessera.sniffIODevices = realSniff
    local report = SystemAudioVisualInfo.getAvInfo()
    assert(KyEventLoop.runUntil(function() return report.updated end, 30), "the sniff ends")
    local values = {}
    for _, row in ipairs(report) do values[row[1]] = row[2] end
    T.eq(type(values.AdapterCount) .. " " .. type(values.SoundCardCount), "number number", "the counts")
    assert(values.GL_RENDERER or values.OpenGL, "OpenGL is reported, or why it is not")
    local displayAdapters = countDistinct("lspci -nn 2>/dev/null", "\n?([%x:.]+) [^\n]*%[03%x%x%]")
    if displayAdapters then T.eq(values.AdapterCount, displayAdapters, "lspci's display controllers") end
    local cards = countDistinct("aplay -l 2>/dev/null", "card (%d+):")
    if cards then T.eq(values.SoundCardCount >= cards, true, "aplay lists the cards that play") end
end)

T.finish()
