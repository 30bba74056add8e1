#include "KyFont.h"

#include <SDL.h>
#include <SDL_ttf.h>
#include <fontconfig/fontconfig.h>

#include <list>
#include <utility>

namespace ky {
namespace {

constexpr size_t kOpenSizes = 4;

// The file of the face fontconfig picks for "sans-serif"; empty when it has none.
std::string sansSerifFile() {
    std::string file;
    FcConfig* config = FcInitLoadConfigAndFonts();
    FcPattern* pattern = FcNameParse(reinterpret_cast<const FcChar8*>("sans-serif"));
    if (config != nullptr && pattern != nullptr) {
        FcConfigSubstitute(config, pattern, FcMatchPattern);
        FcDefaultSubstitute(pattern);
        FcResult result = FcResultNoMatch;
        FcPattern* match = FcFontMatch(config, pattern, &result);
        FcChar8* path = nullptr;
        if (match != nullptr && FcPatternGetString(match, FC_FILE, 0, &path) == FcResultMatch) {
            file = reinterpret_cast<const char*>(path);
        }
        if (match != nullptr) FcPatternDestroy(match);
    }
    if (pattern != nullptr) FcPatternDestroy(pattern);
    if (config != nullptr) FcConfigDestroy(config);
    return file;
}

struct Fonts {
    // Closed at exit, so that a leak check finds none of them.
    ~Fonts() {
        for (const auto& [size, font] : open) TTF_CloseFont(font);
        if (started && failure.empty()) TTF_Quit();
    }

    bool started = false;
    std::string file;
    std::string failure;
    std::list<std::pair<int, TTF_Font*>> open;  // most recently used first
};

Fonts& fonts() {
    static Fonts instance;
    if (!instance.started) {
        instance.started = true;
        if (TTF_Init() != 0) {
            instance.failure = std::string("cannot start the font renderer: ") + TTF_GetError();
        } else {
            instance.file = sansSerifFile();
            if (instance.file.empty()) instance.failure = "fontconfig knows no sans-serif font";
        }
    }
    return instance;
}

TTF_Font* fontOfSize(int size, std::string* error) {
    Fonts& all = fonts();
    if (!all.failure.empty()) {
        *error = all.failure;
        return nullptr;
    }
    for (auto it = all.open.begin(); it != all.open.end(); ++it) {
        if (it->first == size) {
            all.open.splice(all.open.begin(), all.open, it);
            return it->second;
        }
    }
    TTF_Font* font = TTF_OpenFont(all.file.c_str(), size);
    if (font == nullptr) {
        *error = all.file + ": " + TTF_GetError();
        return nullptr;
    }
    all.open.emplace_front(size, font);
    if (all.open.size() > kOpenSizes) {
        TTF_CloseFont(all.open.back().second);
        all.open.pop_back();
    }
    return font;
}

}  // namespace

bool renderText(const std::string& text, int pixelSize, TextMask* mask, std::string* error) {
    *mask = TextMask{};
    if (text.empty()) return true;
    TTF_Font* font = fontOfSize(pixelSize, error);
    if (font == nullptr) return false;
    SDL_Surface* rendered = TTF_RenderUTF8_Blended(font, text.c_str(), SDL_Color{255, 255, 255, 255});
    if (rendered == nullptr) {
        *error = std::string("cannot draw the text: ") + TTF_GetError();
        return false;
    }
    SDL_Surface* argb = SDL_ConvertSurfaceFormat(rendered, SDL_PIXELFORMAT_ARGB8888, 0);
    SDL_FreeSurface(rendered);
    if (argb == nullptr || SDL_LockSurface(argb) != 0) {
        *error = std::string("cannot read the drawn text: ") + SDL_GetError();
        if (argb != nullptr) SDL_FreeSurface(argb);
        return false;
    }
    mask->width = argb->w;
    mask->height = argb->h;
    mask->coverage.resize(static_cast<size_t>(argb->w) * argb->h);
    for (int y = 0; y < argb->h; ++y) {
        const auto* row = reinterpret_cast<const uint32_t*>(static_cast<const uint8_t*>(argb->pixels) + y * argb->pitch);
        for (int x = 0; x < argb->w; ++x) mask->coverage[static_cast<size_t>(y) * argb->w + x] = row[x] >> 24;
    }
    SDL_UnlockSurface(argb);
    SDL_FreeSurface(argb);
    return true;
}

}  // namespace ky
