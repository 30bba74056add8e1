-- Makes a player on a hidden view and closes both: enough for the player to log.
local view = import("KyVideoView").createVideoPlayerView({ visible = false })
local player = import("KyVideoPlayerWin").create()
player:initNativePlayer(view)
player:closePlayer()
view:close()
