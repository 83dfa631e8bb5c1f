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
    // The recognised text, empty when the image holds none; an error (also logged) when the
    // engine failed or could not start. Blocks for a fraction of a second or more (the first
    // call on a thread also starts that thread's engine): call it off the UI thread.
    static Result<QString> text(const QImage& image);

    // text() on a worker thread.
    static QFuture<Result<QString>> textAsync(const QImage& image);

    // Recognises the image's text on a worker thread, then, on `context`'s thread, puts it on
    // the clipboard when there is any and hands the outcome to `done` (empty text: nothing was
    // found). Nothing runs if `context` is gone by then.
    static void copyText(const QImage& image, QObject* context,
                         std::function<void(const Result<QString>&)> done);
};

} // namespace qm
