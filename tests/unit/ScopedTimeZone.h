/* Sets the process's time zone (TZ) for one test and puts the previous setting back. */
#ifndef VIDEO_TOOLKIT_SCOPED_TIME_ZONE_H
#define VIDEO_TOOLKIT_SCOPED_TIME_ZONE_H

#include <cstdlib>
#include <ctime>
#include <optional>
#include <string>

class ScopedTimeZone {
public:
    explicit ScopedTimeZone(const char* zone) {
        if (const char* current = std::getenv("TZ")) previous = current;
        setenv("TZ", zone, 1);
        tzset();
    }
    ~ScopedTimeZone() {
        if (previous) {
            setenv("TZ", previous->c_str(), 1);
        } else {
            unsetenv("TZ");
        }
        tzset();
    }
    ScopedTimeZone(const ScopedTimeZone&) = delete;
    ScopedTimeZone& operator=(const ScopedTimeZone&) = delete;

private:
    std::optional<std::string> previous;
};

#endif
