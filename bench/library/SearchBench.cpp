#include "TestSupport.h"
#include "base/Preferences.h"
#include "base/SettingsStore.h"
#include "library/catalog/TextSearch.h"
#include "library/index/OcrTextIndex.h"
#include "library/model/LibraryModel.h"

#include <QBuffer>
#include <QDir>
#include <QFile>
#include <QImage>
#include <QJsonDocument>
#include <QJsonObject>
#include <QRandomGenerator>
#include <QTemporaryDir>
#include <benchmark/benchmark.h>
#include <memory>

// One keystroke in the library's search field over 10,000 captures whose recognised text is a
// few hundred words each: the model filters by name and text and fixes the selection. Goal:
// at most 5 ms per keystroke. Also the plain substring search the model would otherwise run
// over every folded text, and listing the folder.

using namespace Qt::StringLiterals;

namespace {

constexpr int captureCount = 10000;

// Words of the kind screenshots hold: interface labels, messages, code, numbers.
const QStringList& vocabulary() {
    static const QStringList words = [] {
        QStringList w =
            QString::fromUtf8("the of and to in is for on with that this you it are be as at from "
                              "your by or not can will all new more file edit view window help "
                              "settings open save cancel close delete copy paste undo redo search "
                              "results page home account sign out profile messages inbox sent "
                              "draft reply forward archive total subtotal tax amount date due "
                              "order number customer address email phone name status pending "
                              "completed failed error warning info debug build test deploy "
                              "server client request response timeout connection database query "
                              "table column row value function return class public private "
                              "const void int string true false null undefined import export "
                              "module package version release update download install configure "
                              "meeting calendar monday tuesday wednesday thursday friday today "
                              "tomorrow schedule project task issue comment review merge branch "
                              "commit push pull report chart revenue quarter growth sales market "
                              "price product cart checkout payment card shipping delivery track "
                              "über café straße résumé naïve menu coffee latte tea")
                .split(u' ', Qt::SkipEmptyParts);
        return w;
    }();
    return words;
}

QString recognisedText(QRandomGenerator& random, bool invoice) {
    const QStringList& words = vocabulary();
    QString text;
    const int count = int(random.bounded(200, 400));
    for (int i = 0; i < count; ++i) {
        // Common words far more often than rare ones, as in real text.
        const double r = random.generateDouble();
        const int pick = int(r * r * r * words.size());
        text += words[pick];
        if (random.bounded(8) == 0)
            text += u' ' + QString::number(random.bounded(10000));
        text += random.bounded(10) == 0 ? u'\n' : u' ';
    }
    if (invoice)
        text.insert(int(random.bounded(text.size())), u" INVOICE 2291 "_s);
    return text;
}

// The save folder, the index file and a model over them, made once for every benchmark.
struct Library {
    QTemporaryDir dir;
    QString folder = dir.filePath(u"captures"_s);
    std::unique_ptr<qm::IniSettingsStore> store;
    std::unique_ptr<qm::Preferences> preferences;
    std::unique_ptr<qm::library::OcrTextIndex> index;
    std::unique_ptr<qm::library::LibraryModel> model;
    std::vector<QString> texts;

    Library() {
        QDir().mkpath(folder);
        QRandomGenerator random(7);
        QByteArray png; // a real (tiny) PNG, so listing reads headers as it would
        {
            QImage image(64, 40, QImage::Format_RGB32);
            image.fill(Qt::white);
            QBuffer buffer(&png);
            buffer.open(QIODevice::WriteOnly);
            image.save(&buffer, "PNG");
        }
        QJsonObject records;
        const qint64 start = QDateTime::currentSecsSinceEpoch() - captureCount * 60LL;
        for (int i = 0; i < captureCount; ++i) {
            const bool movie = i % 10 == 9;
            const QString path = QDir(folder).filePath(
                u"Quillmark %1%2"_s.arg(i, 5, 10, QChar(u'0')).arg(movie ? u".mov"_s : u".png"_s));
            QFile file(path);
            file.open(QIODevice::WriteOnly);
            if (!movie) {
                file.write(png);
                file.flush();
            }
            const QDateTime modified = QDateTime::fromSecsSinceEpoch(start + i * 60);
            file.setFileTime(modified, QFileDevice::FileModificationTime);
            if (movie)
                continue;
            texts.push_back(recognisedText(random, random.bounded(20) == 0));
            records.insert(path, QJsonObject{{u"modified"_s, double(start + i * 60)},
                                             {u"text"_s, texts.back()},
                                             {u"size"_s, double(png.size())}});
        }
        const QString indexFile = dir.filePath(u"ocr-index.json"_s);
        QFile out(indexFile);
        out.open(QIODevice::WriteOnly);
        out.write(QJsonDocument(records).toJson(QJsonDocument::Compact));
        out.close();

        store = std::make_unique<qm::IniSettingsStore>(dir.filePath(u"Quillmark.conf"_s));
        preferences = std::make_unique<qm::Preferences>(*store);
        (void)preferences->setOutputDirectory(folder);
        preferences->setSearchImageText(true);
        qm::library::OcrTextIndex::Options options;
        options.file = indexFile;
        options.workers = 1;
        index = std::make_unique<qm::library::OcrTextIndex>(options);
        model = std::make_unique<qm::library::LibraryModel>(*preferences, index.get());
        bool reloaded = false;
        QObject::connect(model.get(), &qm::library::LibraryModel::reloaded, model.get(),
                         [&reloaded] { reloaded = true; });
        model->reload(false);
        qm::test::waitUntil([&] { return reloaded; }, std::chrono::minutes(2));
    }
};

Library& library() {
    static Library instance;
    return instance;
}

// The query, typed into an empty field; the field is emptied again outside the timing.
void BM_keystroke(benchmark::State& state, QString query) {
    Library& lib = library();
    if (lib.model->entries().size() != captureCount || lib.index->remaining() != 0) {
        state.SkipWithError("the library was not set up");
        return;
    }
    lib.model->setSearchText(query); // the first search folds every text once
    lib.model->setSearchText({});
    std::size_t shown = 0;
    for (auto _ : state) {
        lib.model->setSearchText(query);
        shown = lib.model->filtered().size();
        state.PauseTiming();
        lib.model->setSearchText({});
        state.ResumeTiming();
    }
    state.counters["shown"] = double(shown);
}
BENCHMARK_CAPTURE(BM_keystroke, word_in_some, u"invoice"_s)->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(BM_keystroke, word_in_none, u"kangaroo"_s)->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(BM_keystroke, two_words, u"total due"_s)->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(BM_keystroke, single_letter, u"e"_s)->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(BM_keystroke, rare_pair, u"qz"_s)->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(BM_keystroke, accented, u"CAFÉ"_s)->Unit(benchmark::kMillisecond);

// Typing "invoice" one letter at a time, each keystroke a search of its own.
void BM_typingAWord(benchmark::State& state) {
    Library& lib = library();
    const QString word = u"invoice"_s;
    for (auto _ : state) {
        for (qsizetype n = 1; n <= word.size(); ++n)
            lib.model->setSearchText(word.left(n));
        state.PauseTiming();
        lib.model->setSearchText({});
        state.ResumeTiming();
    }
    state.counters["per_key_ms"] =
        benchmark::Counter(double(word.size()), benchmark::Counter::kIsIterationInvariantRate |
                                                    benchmark::Counter::kInvert);
}
BENCHMARK(BM_typingAWord)->Unit(benchmark::kMillisecond);

// What the signatures save: the same searches as a plain substring test of every folded text.
void BM_plainSubstringSearch(benchmark::State& state, QString query) {
    Library& lib = library();
    std::vector<QString> folded;
    for (const QString& text : lib.texts)
        folded.push_back(qm::library::foldForSearch(text));
    const qm::library::SearchNeedle needle(query);
    for (auto _ : state) {
        int found = 0;
        for (const QString& text : folded)
            found += needle.foundIn(text);
        benchmark::DoNotOptimize(found);
    }
}
BENCHMARK_CAPTURE(BM_plainSubstringSearch, word_in_some, u"invoice"_s)
    ->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(BM_plainSubstringSearch, word_in_none, u"kangaroo"_s)
    ->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(BM_plainSubstringSearch, single_letter, u"e"_s)->Unit(benchmark::kMillisecond);

// Listing the 10,000 files on the worker (PNG headers read, dates, sorting).
void BM_listFolder(benchmark::State& state) {
    Library& lib = library();
    for (auto _ : state)
        benchmark::DoNotOptimize(qm::library::scanCaptures(lib.folder));
}
BENCHMARK(BM_listFolder)->Unit(benchmark::kMillisecond);

} // namespace
