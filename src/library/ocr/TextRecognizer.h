#pragma once

#include <QFuture>
#include <QImage>
#include <QString>
#include <functional>
#include <optional>

class QObject;

namespace qm {

// Reads the text in an image with Tesseract (English), lines in reading order joined by line
// feeds. The one text-recognition entry point: the library index and the editor's copy-text
// commands both come through here.
class TextRecognizer {
public:
    // The recognised text, or nothing when the image holds none or the engine failed (the
    // failure is logged). Blocks for a second or more: call it off the UI thread.
    static std::optional<QString> text(const QImage& image);

    // text() on a worker thread.
    static QFuture<std::optional<QString>> textAsync(const QImage& image);

    // Recognises the image's text on a worker thread, then, on `context`'s thread, puts it on
    // the clipboard and calls `done(true)`; `done(false)` when nothing was found. Nothing runs
    // if `context` is gone by then.
    static void copyText(const QImage& image, QObject* context, std::function<void(bool)> done);
};

} // namespace qm
