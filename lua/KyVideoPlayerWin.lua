-- KyVideoPlayerWin: the player class of application code. It wraps the native player object and
-- gives three streams (state, current time, errors) where the native side has calls and a queue
-- of messages. It decides when a play-or-pause request counts, thins out seek requests, feeds the
-- current time from a 0.1-second pulse while playing, and routes native messages to the streams.
local Rx = import("Rx")
local VnLogger = import("VnLogger")
local KyAlternateUniverseSupport = import("KyAlternateUniverseSupport")
local KyWorkerThreads = import("KyWorkerThreads")
local KyEventLoop = import("KyEventLoop")
local RatioTime = import("RatioTime")

local logger = VnLogger("KyWinVideoController")
local natives = assert(_BUNDLE:getCFunction("KyVideoPlayerWin_nativeFuncs_L")())
local newKyVideoPlayerWin = assert(natives.newKyVideoPlayerWin)

local kTicksPerSecond = 10000000
local kPulseSeconds = 0.1

local KyVideoPlayerWin = Rx.Class("KyVideoPlayerWin")({
    Rx.Disposable,
    _nativePlayer = false,
    _inited = false,
    _messageStream = Rx.ReplaySubject(1),
    _messageStreamSubscription = false,
    _currentTimeTimer = false,
    _currentTimeStream = Rx.ReplaySubject(1),
    _currentTimeSubscription = false,
    _playerStateStream = Rx.ReplaySubject(1),
    _playerStateSubscription = false,
    _errorMessageStream = Rx.ReplaySubject(1),
    _seekStream = Rx.ReplaySubject(1),
    _seekSubscription = false,
    _inScrubbing = false,
    _url = false,

    initNativePlayer = function(self, view)
        if self._inited then
            return
        end
        self._inited = true
        local queue = KyAlternateUniverseSupport.makeTransitQueue()
        local action = KyWorkerThreads.makeMainThreadAction(function()
            while true do
                local message, second = queue:dequeue(false)
                if message == nil then
                    return
                end
                if not self._nativePlayer then
                    return
                end
                self._messageStream:onNext(message, second)
            end
        end)
        self._nativePlayer = newKyVideoPlayerWin(queue, action, view)
        self._playerStateStream:onNext("closed")
        self:watchMessageStream()
        self:watchPlayerStateStream()
        self:watchSeekStream()
        logger:trace("KyVideoPlayerWin initNativePlayer")
    end,

    hasNativePlayer = function(self)
        return self._nativePlayer
    end,

    watchMessageStream = function(self)
        self._messageStreamSubscription = self._messageStream:subscribe(function(message)
            if message == nil or message.type == "error" then
                self:handleErrorMessage(message)
                return
            end
            if not self:processVideoPlayerMessage(message) then
                logger:infof("Unknown message, type=%s, data=%f", message.type, message.data)
            end
        end)
    end,

    watchSeekStream = function(self)
        self._seekSubscription = self._seekStream
            :distinctUntilChanged()
            :filter(function()
                return self:getPlayerState() ~= "seek_pending"
            end)
            :subscribe(function(seconds)
                self._nativePlayer:setPosition(RatioTime.makeRatioTime(seconds * kTicksPerSecond, kTicksPerSecond))
                self._currentTimeStream:onNext(seconds, self:durationInSeconds())
            end)
    end,

    processVideoPlayerMessage = function(self, message)
        assert(message)
        assert(message.type)
        assert(message.data)
        local state = message.data
        self._playerStateStream:onNext(state)
        if state == "ended" then
            self._currentTimeStream:onNext(self:currentTime())
        end
        logger:tracef("Video Player State:%s", state)
        return true
    end,

    handleErrorMessage = function(self, message)
        if message == nil then
            logger:warn("Message is empty")
        elseif message.type == "error" then
            self._errorMessageStream:onNext(message.data)
            logger:warnf("Player Message Error:%s", message.data)
        end
        return true
    end,

    resetErrorMessageStream = function(self)
        self._errorMessageStream:onNext(nil)
    end,

    getErrorMessageStream = function(self)
        return self._errorMessageStream
    end,

    pause = function(self)
        self._nativePlayer:pause()
        logger:trace("perform pause")
    end,

    stop = function(self)
        self._nativePlayer:stop()
        logger:trace("perform stop")
    end,

    play = function(self)
        self._nativePlayer:play()
        logger:trace("perform play")
    end,

    performPlayOrPause = function(self)
        local state = self:getPlayerState()
        if state == "playing" then
            self:pause()
        elseif state == "paused" or state == "stopped" or state == "ready" or state == "ended" then
            self:play()
        else
            logger:infof("skip the request of performPlayOrPause, playerState:%s", state)
        end
    end,

    isReadyToPlay = function(self)
        if not self:hasNativePlayer() then
            return false
        end
        local state = self:getPlayerState()
        return state ~= "closing" and state ~= "closed"
    end,

    handleEvent = function(self, event)
        self._nativePlayer:handleEvent(event)
    end,

    getVideoPosition = function(self)
        return self._nativePlayer:getVideoPosition()
    end,

    openURL = function(self, url)
        self:stopTimer()
        self:resetErrorMessageStream()
        self._url = url
        self._nativePlayer:openURL(url)
        self._currentTimeStream:onNext(0, self:durationInSeconds())
        self:startTimer()
        logger:tracef("open video file:%s", url)
    end,

    getURL = function(self)
        return self._url
    end,

    closeURL = function(self)
        self:resetErrorMessageStream()
        self._nativePlayer:closeURL()
        self._url = nil
        logger:trace("close video file")
    end,

    getPlayerState = function(self)
        if not self:hasNativePlayer() then
            return "closed"
        end
        return self._nativePlayer:getPlayerState()
    end,

    isPlaying = function(self)
        return self:getPlayerState() == "playing"
    end,

    isPaused = function(self)
        return self:getPlayerState() == "paused"
    end,

    getPlayerStateStream = function(self)
        return self._playerStateStream
    end,

    watchPlayerStateStream = function(self)
        self._playerStateSubscription = self._playerStateStream:distinctUntilChanged():subscribe(function(state)
            if state == "ended" then
                self._currentTimeStream:onNext(self:durationInSeconds(), self:durationInSeconds())
            elseif state == "playing" then
                self:resetErrorMessageStream()
            end
        end)
    end,

    resizeVideo = function(self, width, height)
        self._nativePlayer:resizeVideo(width, height)
    end,

    repaintVideo = function(self)
        self._nativePlayer:repaintVideo()
    end,

    closePlayer = function(self)
        if self:hasNativePlayer() then
            self._nativePlayer:closePlayer()
        end
        logger:trace("close player")
    end,

    durationInSeconds = function(self)
        local duration = self._nativePlayer:duration()
        return duration.numerator / duration.denominator
    end,

    currentTime = function(self)
        local position = self._nativePlayer:currentTime()
        return position.numerator / position.denominator
    end,

    setPosition = function(self, seconds)
        self._seekStream:onNext(seconds)
    end,

    beginScrubbing = function(self)
        if self._inScrubbing then
            return
        end
        self._inScrubbing = true
        self._nativePlayer:beginScrubbing()
    end,

    endScrubbing = function(self)
        if not self._inScrubbing then
            return
        end
        self._inScrubbing = false
        self._nativePlayer:endScrubbing()
    end,

    inScrubbing = function(self)
        return self._inScrubbing
    end,

    -- The user's sound and speed, kept across play, pause, seeks, scrubbing and the files opened:
    -- a linear volume from 0 to 1, a mute that keeps playback going, and a rate from 0.25 to 4
    -- with the sound's pitch kept. Values of another type or outside the range raise.
    setVolume = function(self, level)
        self._nativePlayer:setVolume(level)
    end,

    getVolume = function(self)
        return self._nativePlayer:getVolume()
    end,

    setMuted = function(self, flag)
        self._nativePlayer:setMuted(flag)
    end,

    isMuted = function(self)
        return self._nativePlayer:isMuted()
    end,

    setPlaybackRate = function(self, rate)
        self._nativePlayer:setPlaybackRate(rate)
    end,

    getPlaybackRate = function(self)
        return self._nativePlayer:getPlaybackRate()
    end,

    startTimer = function(self)
        self._currentTimeTimer = KyEventLoop.onPulse(kPulseSeconds, function()
            local state = self:getPlayerState()
            if state == "closing" or state == "closed" then
                self:stopTimer()
                return
            end
            if state == "playing" then
                self._currentTimeStream:onNext(self:currentTime(), self:durationInSeconds())
            end
        end)
    end,

    stopTimer = function(self)
        if self._currentTimeTimer then
            self._currentTimeTimer:stop()
            self._currentTimeTimer = nil
        end
    end,

    getCurrentTimeStream = function(self)
        return self._currentTimeStream
    end,
})

return { create = KyVideoPlayerWin }
