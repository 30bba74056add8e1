-- VideoSupport: poster frames, file properties and camera metadata of a video file, and whether
-- a codec is supported. Which failures raise, which are logged and which are handed on is part of
-- the module's contract: file properties raise "video_error", a missing poster frame is logged,
-- metadata failures come back as values.
local KyErrors = import("KyErrors")
local natives = assert(_BUNDLE:getCFunction("VideoSupport_nativeFuncs_L")())
local getPosterFrameNative = assert(natives.getPosterFrame)
local getVideoFileInfoNative = assert(natives.getVideoFileInfo)
local getMetadataNative = assert(natives.getMetadata)
local logger = import("VnLogger")("VideoSupport")

-- Codecs the Mac build cannot play, with the name to show to the user.
local unsupportedCodecs = {
    APCH = "Apple ProRes",
    APCN = "Apple ProRes",
    APCS = "Apple ProRes",
    APCO = "Apple ProRes",
    AP4H = "Apple ProRes",
    RLE = "QuickTime Animation",
    AVDH = "Avid DNxHR",
    AVDN = "Avid DNxHD",
}

local function getPosterFrame(path)
    if not WIN_ENV then
        return getPosterFrameNative(path)
    end
    local image, details = getPosterFrameNative(path)
    if image == nil then
        logger:infof("getPosterFrame: %s, error: %s", tostring(path), tostring(details.error_message))
        return nil
    end
    return image
end

local function getVideoFileInfo(path)
    local info = getVideoFileInfoNative(path)
    if info.error_message ~= nil then
        KyErrors.throwIdentifier("video_error", info.error_message)
    end
    return info
end

local function getMetadata(path)
    return getMetadataNative(path)
end

local function isSupportedVideoCodec(codec)
    if MAC_ENV and codec and unsupportedCodecs[codec] then
        return false, unsupportedCodecs[codec]
    end
    return true
end

return {
    getVideoFileInfo = getVideoFileInfo,
    getPosterFrame = getPosterFrame,
    getMetadata = getMetadata,
    isSupportedVideoCodec = isSupportedVideoCodec,
}
