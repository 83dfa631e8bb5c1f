#pragma once

// Writes an endlessly looping GIF frame by frame. Each frame gets its own palette
// (libimagequant, dithered), and only the rectangle that changed since the previous frame is
// written, with the pixels that stayed the same left transparent.

#include "base/Result.h"

#include <QSize>
#include <cstdint>
#include <memory>
#include <vector>

struct GifFileType;
struct ColorMapObject;
struct liq_attr;
struct liq_result;

namespace qm::media {

struct GifWriterOptions {
    int speed = 4;          // libimagequant's speed, 1 (best) … 10 (fastest)
    float dithering = 1.0f; // 0 (none) … 1 (full Floyd–Steinberg)
    // Frames whose flat-colour version is further off than this (mean squared difference
    // per channel) are dithered.
    double ditherAboveError = 4;
    // How far (per channel, 0…255) a pixel may drift from what the GIF shows before it is
    // written again; tiny decoder noise then costs nothing.
    int tolerance = 1;
    // How much worse (mean squared difference per channel) a frame may come out in the
    // palette of an earlier frame, beyond half as bad again, before it gets a palette of its
    // own.
    double slack = 2;
};

class GifWriter {
public:
    // Takes over `fd` (an empty file opened for writing) and writes the header and the loop
    // forever block.
    static Result<std::unique_ptr<GifWriter>> open(int fd, QSize size,
                                                   GifWriterOptions options = {});
    ~GifWriter();
    GifWriter(const GifWriter&) = delete;
    GifWriter& operator=(const GifWriter&) = delete;

    // `rgba` holds width × height pixels, 4 bytes each, rows packed; `delay` is in hundredths
    // of a second.
    Status addFrame(const std::uint8_t* rgba, int delay);
    // Writes the trailer and closes the file.
    Status finish();

private:
    struct Rect {
        int x = 0, y = 0, width = 0, height = 0;
    };
    GifWriter(GifFileType* file, QSize size, GifWriterOptions options);
    Rect changedRect(const std::uint8_t* rgba) const;
    Error writeFailure() const;
    Status makePalette();
    double remapError() const;

    struct AttrFree {
        void operator()(liq_attr* attr) const;
    };
    struct ResultFree {
        void operator()(liq_result* result) const;
    };
    struct MapFree {
        void operator()(ColorMapObject* map) const;
    };

    GifFileType* m_file;
    QSize m_size;
    GifWriterOptions m_options;
    bool m_first = true;
    std::unique_ptr<liq_attr, AttrFree> m_attr;
    std::unique_ptr<liq_result, ResultFree> m_palette; // the palette frames are written in
    std::unique_ptr<ColorMapObject, MapFree> m_map;    // the same for giflib
    double m_paletteError = 0;                         // how far the frame it was made for came out
    int m_transparent = -1;
    // What each pixel was when it was last written: the frame the GIF shows, before its
    // colours were reduced.
    std::vector<std::uint8_t> m_shown;
    std::vector<std::uint8_t> m_patch;
    std::vector<std::uint8_t> m_indices;
};

} // namespace qm::media
