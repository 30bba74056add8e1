/* ALSA prints its complaints (a missing alsa.conf, a card that is not there) on standard error when
 * SDL opens or probes audio. While a KyAlsaMessages lives, ALSA's error handler takes them instead,
 * for the caller to report or drop: a player on a machine without sound plays silently, and a tool's
 * standard error stays its own. SDL loads the same library later and finds it loaded with the
 * handler set. Construct and destroy on one thread; taken() from any thread. Without libasound it
 * does nothing. */
#ifndef KY_ALSA_MESSAGES_H
#define KY_ALSA_MESSAGES_H

#include <string>

#include "PlatformExport.h"

KY_PLATFORM_EXPORTS_BEGIN

class KyAlsaMessages {
public:
    KyAlsaMessages();
    ~KyAlsaMessages();
    KyAlsaMessages(const KyAlsaMessages&) = delete;
    KyAlsaMessages& operator=(const KyAlsaMessages&) = delete;

    /* What ALSA said since the last call, "; " between messages (the first few of a burst); empty
     * when it said nothing. */
    static std::string taken();

private:
    void* library_ = nullptr;
    int (*setHandler_)(void (*)(const char*, int, const char*, int, const char*, ...)) = nullptr;
};

KY_PLATFORM_EXPORTS_END

#endif
