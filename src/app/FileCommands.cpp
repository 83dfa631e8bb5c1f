#include "app/FileCommands.h"

#include "ai/core/ClaudeClient.h"
#include "app/BackendChoice.h"
#include "base/Preferences.h"
#include "base/SettingsStore.h"
#include "library/catalog/CaptureEntry.h"
#include "library/catalog/TextMatch.h"
#include "library/index/OcrTextIndex.h"
#include "media/gif/GIFExporter.h"
#include "media/trim/TrimInPlace.h"
#include "platform/secrets/api/SecretStore.h"

#include <QEventLoop>
#include <QFileInfo>
#include <QImageReader>
#include <QNetworkAccessManager>
#include <cstdio>
#include <unistd.h>

namespace qm {

namespace {

// "Trimming… 42%", rewritten in place on a terminal, a line per tenth otherwise.
class Progress {
public:
    explicit Progress(QString label)
        : m_label(std::move(label))
        , m_terminal(::isatty(::fileno(stderr)) != 0) {}
    void operator()(double fraction) {
        const int percent = int(fraction * 100);
        if (percent == m_shown || (!m_terminal && percent / 10 == m_shown / 10))
            return;
        m_shown = percent;
        const QByteArray line = QStringLiteral("%1… %2%").arg(m_label).arg(percent).toLocal8Bit();
        std::fprintf(stderr, m_terminal ? "\r%s" : "%s\n", line.constData());
        std::fflush(stderr);
    }
    void done() {
        if (m_terminal && m_shown >= 0)
            std::fputc('\n', stderr);
    }

private:
    QString m_label;
    bool m_terminal;
    int m_shown = -1;
};

int trim(const command::Trim& request) {
    if (!QFileInfo(request.movie).isFile()) {
        printLine(stderr, QStringLiteral("Could not trim: %1 does not exist.").arg(request.movie));
        return 1;
    }
    Progress progress(QStringLiteral("Trimming"));
    const auto trimmed = media::trim::trimInPlace(request.movie, request.from, request.to,
                                                  [&](double f) { progress(f); });
    progress.done();
    if (!trimmed) {
        printLine(stderr, QStringLiteral("Could not trim: ") + trimmed.error().reason);
        return 1;
    }
    printLine(stdout, QFileInfo(request.movie).absoluteFilePath());
    return 0;
}

int gif(const command::Gif& request) {
    if (!QFileInfo(request.movie).isFile()) {
        printLine(stderr,
                  QStringLiteral("Could not make a GIF: %1 does not exist.").arg(request.movie));
        return 1;
    }
    // The same settings the trim window uses: frame rate, size and the save folder.
    IniSettingsStore store;
    Preferences preferences(store);
    media::GIFExporter::Request job;
    job.movie = request.movie;
    job.range.start = request.from.value_or(0);
    if (request.to)
        job.range.duration = *request.to - job.range.start;
    job.settings.fps = request.fps.value_or(preferences.gifFPS());
    job.settings.maxDimension =
        request.maxSize ? double(*request.maxSize) : preferences.gifMaxDimension();
    if (request.output.isEmpty())
        job.output = media::GIFExporter::IntoFolder{preferences.outputDirectory()};
    else
        job.output = media::GIFExporter::ToFile{request.output};
    Progress progress(QStringLiteral("Making the GIF"));
    job.progress = [&](double f) { progress(f); };
    const auto written = media::GIFExporter::exportRange(job);
    progress.done();
    if (!written) {
        printLine(stderr, written.error().reason);
        return 1;
    }
    printLine(stdout, *written);
    return 0;
}

// Reads the text of the images the index has not seen, saying how far it got on stderr.
void readNewText(library::OcrTextIndex& index, const std::vector<library::CaptureEntry>& entries) {
    QStringList images;
    for (const library::CaptureEntry& entry : entries)
        if (entry.kind == library::MediaKind::Images)
            images << entry.path;
    index.index(images);
    const int total = index.remaining();
    if (total == 0)
        return;
    const bool terminal = ::isatty(::fileno(stderr)) != 0;
    const auto show = [&] {
        const QByteArray line = QStringLiteral("Reading text in images… %1 of %2")
                                    .arg(total - index.remaining())
                                    .arg(total)
                                    .toLocal8Bit();
        std::fprintf(stderr, terminal ? "\r%s" : "%s\n", line.constData());
        std::fflush(stderr);
    };
    show();
    QEventLoop loop;
    QObject::connect(&index, &library::OcrTextIndex::revisionChanged, &loop, show);
    QObject::connect(&index, &library::OcrTextIndex::isIndexingChanged, &loop,
                     [&loop](bool indexing) {
                         if (!indexing)
                             loop.quit();
                     });
    if (index.isIndexing())
        loop.exec();
    if (terminal)
        std::fputc('\n', stderr);
}

int search(const command::Search& request) {
    IniSettingsStore store;
    Preferences preferences(store);
    const std::vector<library::CaptureEntry> entries =
        library::scanCaptures(preferences.outputDirectory());
    const bool byText = preferences.searchImageText();
    std::optional<library::OcrTextIndex> index;
    if (byText) {
        index.emplace();
        readNewText(*index, entries);
        index->flush();
        if (!index->unavailableReason().isEmpty())
            printLine(stderr, index->unavailableReason());
    }
    // Names match as the library's search field does; images also by the text they show.
    const library::SearchNeedle needle(request.text);
    bool found = false;
    for (const library::CaptureEntry& entry : entries) { // newest first
        const bool byName =
            needle.foundIn(library::foldForSearch(QFileInfo(entry.path).completeBaseName()));
        if (byName || (index && entry.kind == library::MediaKind::Images &&
                       index->textContains(entry.path, needle))) {
            printLine(stdout, entry.path);
            found = true;
        }
    }
    return found ? 0 : 1;
}

int ask(const command::Ask& request) {
    const auto fail = [](const QString& reason) {
        printLine(stderr, reason);
        return 1;
    };
    if (!QFileInfo(request.image).isFile())
        return fail(QStringLiteral("Could not ask: %1 does not exist.").arg(request.image));
    QImageReader reader(request.image);
    reader.setAutoTransform(true);
    const QImage image = reader.read();
    if (image.isNull())
        return fail(QStringLiteral("Could not ask: %1 could not be read as an image (%2).")
                        .arg(request.image, reader.errorString()));

    IniSettingsStore store;
    Preferences preferences(store);
    const std::unique_ptr<platform::SecretStore> keys = platform::createSecretStore();
    QNetworkAccessManager network;
    ai::ClaudeClient client(*keys, network);
    ai::AskRequest question;
    question.prompt =
        request.action.isEmpty() ? request.question : ai::aiAction(request.action).value().prompt;
    question.images = {image};
    question.model = preferences.aiModel();

    QEventLoop loop;
    ai::AskReply* reply = client.ask(question, &loop);
    // The reply grows at its end; print only what is new.
    qsizetype printed = 0;
    QString text;
    QObject::connect(reply, &ai::AskReply::textChanged, &loop, [&](const QString& soFar) {
        text = soFar;
        if (soFar.size() <= printed)
            return;
        std::fputs(soFar.mid(printed).toLocal8Bit().constData(), stdout);
        std::fflush(stdout);
        printed = soFar.size();
    });
    std::optional<Result<QString>> outcome;
    QObject::connect(reply, &ai::AskReply::finished, &loop, [&](const Result<QString>& result) {
        outcome = result;
        loop.quit();
    });
    loop.exec();
    if (printed > 0 && !text.endsWith(QLatin1Char('\n')))
        std::fputc('\n', stdout);
    std::fflush(stdout);
    if (!*outcome)
        return fail(outcome->error().reason);
    if (printed == 0) // a whole reply rather than a stream
        printLine(stdout, **outcome);
    return 0;
}

} // namespace

int runFileCommand(const Command& command) {
    if (const auto* t = std::get_if<command::Trim>(&command))
        return trim(*t);
    if (const auto* g = std::get_if<command::Gif>(&command))
        return gif(*g);
    if (const auto* s = std::get_if<command::Search>(&command))
        return search(*s);
    if (const auto* a = std::get_if<command::Ask>(&command))
        return ask(*a);
    return 2;
}

} // namespace qm
