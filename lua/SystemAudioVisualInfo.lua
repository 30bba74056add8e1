-- SystemAudioVisualInfo: the machine's graphics adapters and audio hardware as rows of label and
-- value. getAvInfo answers at once with a placeholder row; when Tessera's background sniff is done
-- the same table holds the real rows, sorted, and its observers are told ("updated").
local KyAlternateUniverseSupport = import("KyAlternateUniverseSupport")
local VnLogger = import("VnLogger")
local KyPreferences = import("KyPreferences")

local sequencingLogger = VnLogger("VideoSequencing")
local infoLogger = VnLogger("SystemAudioVisualInfo")

local kStylesheet = [[<?xml version="1.0" encoding="utf-8"?>
<xsl:stylesheet version="1.0" xmlns:xsl="http://www.w3.org/1999/XSL/Transform">
<xsl:output method='text' version='1.0' encoding='utf-8' indent='no'/>

<xsl:template match="/">
return {
	<xsl:apply-templates />
}
</xsl:template>

<xsl:template match="configuration/*" >
	<xsl:value-of select="name()" /> = "<xsl:value-of select="text()" />",
</xsl:template>

<xsl:template match="configuration/Adapters" >
	<xsl:value-of select="name()" /> = {
	<xsl:apply-templates mode="Adapters" />
	},
</xsl:template>

<xsl:template match="Adapter" mode="Adapters">
		{
			videoMemory = "<xsl:value-of select="@videoMemory" />",
			VendorId = "<xsl:value-of select="@VendorId" />",
			DeviceId = "<xsl:value-of select="@DeviceId" />",
			SubSysId = "<xsl:value-of select="@SubSysId" />",
			Revision = "<xsl:value-of select="@Revision" />",
		},
</xsl:template>
</xsl:stylesheet>
]]

-- The lines of an adapter's row, in order: attribute and label.
local kAdapterLines = {
    { "VendorId", "$$$/SystemAudioVisualInfo/AdapterProperties/VendorId=Vendor" },
    { "DeviceId", "$$$/SystemAudioVisualInfo/AdapterProperties/DeviceId=Device" },
    { "SubSysId", "$$$/SystemAudioVisualInfo/AdapterProperties/SubSysId=Subsystem" },
    { "Revision", "$$$/SystemAudioVisualInfo/AdapterProperties/Revision=Revision" },
    { "videoMemory", "$$$/SystemAudioVisualInfo/AdapterProperties/videoMemory=Video Memory" },
}
local kLastKey = "GL_EXTENSIONS"

local avInfo = nil
local avListeners = {}
local avRows = {}

local function converted(value)
    if value == "false" then
        return false
    elseif value == "true" then
        return true
    elseif value == tostring(tonumber(value)) then
        return tonumber(value)
    end
    return value
end

local function adapterText(adapter)
    local lines = {}
    for _, line in ipairs(kAdapterLines) do
        table.insert(lines, ZSTR(line[2]) .. " : " .. adapter[line[1]])
    end
    return table.concat(lines, "\r\n\t")
end

local function sortedPairs(rows)
    local pairsList = {}
    for key, value in pairs(rows) do
        table.insert(pairsList, { key, value })
    end
    table.sort(pairsList, function(a, b)
        if a[1] == kLastKey or b[1] == kLastKey then
            return b[1] == kLastKey and a[1] ~= kLastKey
        end
        return a[1] < b[1]
    end)
    return pairsList
end

local function convert(description, info, rows)
    infoLogger:tracef("Got sniffer info: %s", description)
    local KyXML = import("KyXML")
    local text = KyXML.KyXML(description):transform(kStylesheet)
    local t = loadstring(text)()
    for key, value in pairs(t) do
        t[key] = converted(value)
    end
    avInfo = t
    local adapters = t.Adapters or {}
    t.Adapters = nil
    for i, adapter in ipairs(adapters) do
        t[ZSTR("$$$/SystemAudioVisualInfo/AdapterNumber=Adapter #^1", i)] = adapterText(adapter)
    end
    for key, value in pairs(t) do
        rows[key] = value
    end
    for i, pair in ipairs(sortedPairs(rows)) do
        info[i] = pair
    end
    for _, listener in ipairs(avListeners) do
        local ok, failure = pcall(listener, t)
        if not ok then
            infoLogger:warnf("AvSetting listener Error: %s", tostring(failure or "Unknown error"))
        end
    end
end

local function getAvInfo()
    local info = {
        {
            ZSTR("$$$/SystemAudioVisualInfo/AdapterProperties/SystemAudioVisualInfo=Audio and Video info"),
            ZSTR("$$$/SystemAudioVisualInfo/AdapterProperties/Loading=Loading"),
        },
    }
    local Tessera = import("Tessera")
    if not Tessera.inited() then
        return info
    end
    sequencingLogger:debugf("2. Sniffing GPU and Audio hardware...")
    Tessera.sniffIODevices(function(ok, result)
        if not ok then
            infoLogger:warn("2. Cannot sniff GPU and Audio hardware")
            return
        end
        sequencingLogger:debugf("2. Sniffing GPU and Audio hardware... <DONE>")
        info.av = nil
        pcall(convert, result.displayDescription, info, avRows)
        local KyObservations = import("KyObservations")
        info.updated = true
        KyObservations.notifyObservers(info, "updated", true)
    end, false)
    return info
end

local function whenInfoAvailable(listener)
    if avInfo then
        listener(avInfo)
    else
        table.insert(avListeners, listener)
    end
end

export("SystemAudioVisualInfo")({ getAvInfo = getAvInfo, whenInfoAvailable = whenInfoAvailable })
