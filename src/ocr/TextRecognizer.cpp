#include "ocr/TextRecognizer.h"

#include "base/Log.h"

#include <QClipboard>
#include <QGuiApplication>
#include <QPointer>
#include <QScopeGuard>
#include <QStringList>
#include <QtConcurrent/QtConcurrentRun>
#include <allheaders.h>
#include <exception>
#include <memory>
#include <omp.h>
#include <tesseract/baseapi.h>

namespace qm {

namespace {

struct TessDeleter {
    void operator()(tesseract::TessBaseAPI* api) const {
        api->End();
        delete api;
    }
};
using TessPtr = std::unique_ptr<tesseract::TessBaseAPI, TessDeleter>;

struct PixDeleter {
    void operator()(Pix* pix) const { pixDestroy(&pix); }
};
using PixPtr = std::unique_ptr<Pix, PixDeleter>;

struct TextDeleter {
    void operator()(char* text) const { delete[] text; }
};

// Leptonica holds 32-bit pixels as 0xRRGGBBAA words; Qt's RGB32 is 0xAARRGGBB.
PixPtr toPix(const QImage& source) {
    const QImage image = source.convertToFormat(QImage::Format_RGB32);
    PixPtr pix(pixCreate(image.width(), image.height(), 32));
    if (!pix)
        return nullptr;
    l_uint32* data = pixGetData(pix.get());
    const int wpl = pixGetWpl(pix.get());
    for (int y = 0; y < image.height(); ++y) {
        const auto* in = reinterpret_cast<const QRgb*>(image.constScanLine(y));
        l_uint32* out = data + qsizetype(y) * wpl;
        for (int x = 0; x < image.width(); ++x)
            out[x] = (l_uint32(qRed(in[x])) << 24) | (l_uint32(qGreen(in[x])) << 16) |
                     (l_uint32(qBlue(in[x])) << 8) | 0xff;
    }
    return pix;
}

double scaledPixels(const QImage& image, const TextRecognizer::Tuning& tuning) {
    return double(image.width()) * image.height() * tuning.scale * tuning.scale;
}

bool tooLargeToScale(const QImage& image, const TextRecognizer::Tuning& tuning) {
    return scaledPixels(image, tuning) > double(tuning.maxScaledPixels);
}

// A whole window or screen, whose columns the automatic layout keeps apart.
bool wholeLayout(const QImage& image, const TextRecognizer::Tuning& tuning) {
    return scaledPixels(image, tuning) > double(tuning.layoutPixels);
}

QImage prepared(const QImage& image, const TextRecognizer::Tuning& tuning) {
    const double scale = tuning.scale;
    if (scale == 1 || tooLargeToScale(image, tuning))
        return image;
    return image.scaled((QSizeF(image.size()) * scale).toSize(), Qt::IgnoreAspectRatio,
                        Qt::SmoothTransformation);
}

// Where Tesseract looks for its language data, for the reason shown when it is not there.
QString dataFolder() {
    const QString prefix = qEnvironmentVariable("TESSDATA_PREFIX");
    return prefix.isEmpty() ? QStringLiteral("the system's Tesseract data folder") : prefix;
}

// Starting an engine loads the language model, which takes longer than most recognitions;
// each worker thread keeps the one it started and tears it down when the thread ends. A start
// that failed is not kept, so the next recognition tries again (the data may be installed by
// then).
thread_local TessPtr thisThreadsEngine;

Result<tesseract::TessBaseAPI*> threadEngine() {
    if (thisThreadsEngine)
        return thisThreadsEngine.get();
    // Tesseract's OpenMP threads make it about ten times slower on a loaded machine; one
    // thread per recognition keeps it fast and leaves the cores to the interface. The limit
    // is per thread, so it is set on each thread that gets an engine. Tesseract's LSTM asks
    // for ten threads by name, which only a zero nesting depth refuses once the program runs
    // (OMP_THREAD_LIMIT is read when the runtime loads, before main): process-wide, and the
    // engine is the program's only OpenMP user.
    omp_set_num_threads(1);
    omp_set_max_active_levels(0);
    TessPtr api(new tesseract::TessBaseAPI);
    if (api->Init(nullptr, "eng", tesseract::OEM_LSTM_ONLY) != 0)
        return failure(QStringLiteral("the English language data could not be loaded from %1")
                           .arg(dataFolder()));
    // Its chatter ("Estimating resolution as 134") would land on the search command's stderr.
    api->SetVariable("debug_file", "/dev/null");
    thisThreadsEngine = std::move(api);
    return thisThreadsEngine.get();
}

Result<QString> recognize(const QImage& image, const TextRecognizer::Tuning& tuning) {
    const Result<tesseract::TessBaseAPI*> engine = threadEngine();
    if (!engine.ok())
        return engine.error();
    tesseract::TessBaseAPI* api = *engine;
    api->SetPageSegMode(tesseract::PageSegMode(
        wholeLayout(image, tuning) ? tuning.largePageSegmentation : tuning.pageSegmentation));
    const PixPtr pix = toPix(prepared(image, tuning));
    if (!pix) {
        return failure(QStringLiteral("there is not enough memory"));
    }
    // Clear drops the last image and its results, so the engine holds nothing between calls.
    const auto clear = qScopeGuard([api] { api->Clear(); });
    api->SetImage(pix.get());
    if (api->Recognize(nullptr) != 0) {
        return failure(QStringLiteral("the text engine stopped with an error"));
    }
    const std::unique_ptr<char[], TextDeleter> utf8(api->GetUTF8Text());
    if (!utf8)
        return QString();
    QStringList lines;
    for (const QString& line : QString::fromUtf8(utf8.get()).split(QLatin1Char('\n'))) {
        const QString trimmed = line.trimmed();
        if (!trimmed.isEmpty())
            lines << trimmed;
    }
    return lines.join(QLatin1Char('\n'));
}

} // namespace

TextRecognizer::Tuning TextRecognizer::defaultTuning() {
    // Measured by bench/ocr/QualityBench on screenshots of prose, a table, code and a dark
    // theme in DejaVu and Nimbus faces at 12-16 px, and of xterm: a single uniform block
    // (PSM 6) read them best, 1.35 % of characters wrong at their own size and 0.41 % enlarged
    // twice (PSM 4: 1.48 / 0.52 %; PSM 11: 2.54 / 0.65 %; automatic layout, PSM 3: 10 %, as
    // it splits tables and lines into columns). Three times did no better than twice.
    // Whole screens are different: a single block runs the lines of side-by-side columns
    // together (half the characters out of order on a screen of prose beside code), where the
    // automatic layout keeps the columns apart. On those 1920x1080 screens
    // (bench/ocr/ThroughputBench) it read 2.2 % wrong at their own size, 1.5 % at 1.5x and
    // 1.0 % at twice, for about 1.6 times the time of their own size.
    return Tuning{tesseract::PSM_SINGLE_BLOCK, 2, 2'400'000, tesseract::PSM_AUTO, 9'000'000};
}

Status TextRecognizer::startEngine() {
    try {
        const Result<tesseract::TessBaseAPI*> engine = threadEngine();
        if (!engine.ok())
            return engine.error();
    } catch (const std::exception& e) {
        thisThreadsEngine.reset();
        return failure(QString::fromLocal8Bit(e.what()));
    }
    return {};
}

Result<QString> TextRecognizer::text(const QImage& image) {
    return text(image, defaultTuning());
}

Result<QString> TextRecognizer::text(const QImage& image, const Tuning& tuning) {
    if (image.isNull() || image.width() < 2 || image.height() < 2)
        return QString();
    // Tesseract reports trouble by throwing from deep inside; nothing of that crosses here.
    Result<QString> result = failure(QStringLiteral("unknown error"));
    try {
        result = recognize(image, tuning);
    } catch (const std::exception& e) {
        result = failure(QString::fromLocal8Bit(e.what()));
        thisThreadsEngine
            .reset(); // whatever state it was left in, the next recognition starts afresh
    } catch (...) {
        thisThreadsEngine.reset();
    }
    if (!result.ok())
        qCWarning(lcOcr).noquote()
            << QStringLiteral("Quillmark OCR failed: ") + result.error().reason;
    return result;
}

QFuture<Result<QString>> TextRecognizer::textAsync(const QImage& image) {
    return QtConcurrent::run([image] { return text(image); });
}

void TextRecognizer::copyText(const QImage& image, QObject* context,
                              std::function<void(const Result<QString>&)> done) {
    textAsync(image).then(context, [done = std::move(done)](const Result<QString>& found) {
        if (found.ok() && !found->isEmpty())
            QGuiApplication::clipboard()->setText(*found);
        if (done)
            done(found);
    });
}

} // namespace qm
