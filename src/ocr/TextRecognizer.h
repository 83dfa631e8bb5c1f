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
        // Images that would grow beyond this many pixels are read at their own size: the
        // time grows with the pixels and large screenshots already carry legible text.
        qint64 maxScaledPixels = 2'400'000;
        // Those larger images, whole windows and screens with sidebars and columns, are read
        // with this mode instead.
        int largePageSegmentation = 0;
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
