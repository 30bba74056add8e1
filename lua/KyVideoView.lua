-- KyVideoView: makes the view a video plays in. It names the platform's kind of view and leaves
-- the making of the view to the host's KyView; KyView itself is imported only when a view is made.
_BUNDLE:getCFunction("dummy")

local function createVideoPlayerView(args)
    args = args or {}
    local KyView = import("KyView")
    args._manifestationFactory = KyView.osFactory()
    if MAC_ENV then
        args._NSClass = "KyVideoPlayerCocoa"
        return KyView.createKyView(args)
    end
    _BUNDLE:getCFunction("registerKyViewWinVideoPlayer_L")()
    args._WinClass = import("KyViewWinVideoPlayer")
    args._WinClassName = "KyViewWinVideoPlayer"
    return KyView.createKyView(args)
end

export("KyVideoView")({ createVideoPlayerView = createVideoPlayerView })
