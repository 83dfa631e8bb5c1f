#pragma once

#include "base/Result.h"

#include <QFuture>
#include <QImage>
#include <QString>
#include <functional>

class QObject;

namespace qm {

// Reads the text in an image with Tesseract (English), lines in reading order joined by line
// feeds. The one text-recognition entry point: the library index and the editor's copy-text
// commands both come through here.
class TextRecognizer {
public:
    // How an image is handed to the engine: its page-segmentation mode and how much the image
    // is enlarged first. The defaults were chosen by measuring (bench/ocr); the benchmark
    // tries others.
    struct Tuning {
        int pageSegmentation = 0; // Tesseract's PSM number
        double scale = 1;
        // Images that hold more than this many pixels once enlarged, whole windows and screens
        // with sidebars and columns, are read with the large mode instead.
        qint64 layoutPixels = 2'400'000;
        int largePageSegmentation = 0;
        // Nothing is enlarged beyond this many pixels: the time grows with them, and a 4K
        // screenshot's text is large enough as it is.
        qint64 maxScaledPixels = 9'000'000;
        bool operator==(const Tuning&) const = default;
    };
    static Tuning defaultTuning();

    // Starts this thread's engine if it has none; the reason when it cannot start (the
    // English language data is missing). Cheap once started.
    static Status startEngine();

    // The recognised text, empty when the image holds none; an error (also logged) when the
    // engine failed or could not start. Blocks for a fraction of a second or more (the first
    // call on a thread also starts that thread's engine): call it off the UI thread.
    static Result<QString> text(const QImage& image);
    static Result<QString> text(const QImage& image, const Tuning& tuning);

    // text() on a worker thread.
    static QFuture<Result<QString>> textAsync(const QImage& image);

    // Recognises the image's text on a worker thread, then, on `context`'s thread, puts it on
    // the clipboard when there is any and hands the outcome to `done` (empty text: nothing was
    // found). Nothing runs if `context` is gone by then.
    static void copyText(const QImage& image, QObject* context,
                         std::function<void(const Result<QString>&)> done);
};

} // namespace qm
