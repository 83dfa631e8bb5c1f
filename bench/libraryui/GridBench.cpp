#include "TestSupport.h"
#include "base/Preferences.h"
#include "base/SettingsStore.h"
#include "library/model/LibraryModel.h"
#include "library/thumbnails/ThumbnailLoader.h"
#include "library/ui/CaptureCell.h"
#include "library/ui/CaptureGridModel.h"

#include <QDir>
#include <QFile>
#include <QPixmap>
#include <QTemporaryDir>
#include <benchmark/benchmark.h>
#include <memory>

using namespace qm;
using namespace qm::library;

namespace {

// A save folder of `count` captures, half images and half movies (the files are empty: the
// listing reads no pixels and the grid paints placeholders, as before thumbnails arrive).
struct Scene {
    QTemporaryDir dir;
    std::unique_ptr<IniSettingsStore> store;
    std::unique_ptr<Preferences> preferences;
    std::unique_ptr<LibraryModel> model;
    std::unique_ptr<ThumbnailLoader> thumbnails;
    std::unique_ptr<CaptureGridModel> rows;
    std::unique_ptr<CaptureGrid> grid;

    explicit Scene(int count) {
        const QString folder = dir.filePath(QStringLiteral("Captures"));
        QDir().mkpath(folder);
        for (int i = 0; i < count; ++i) {
            const QString name = QStringLiteral("Quillmark %1.%2")
                                     .arg(i, 5, 10, QLatin1Char('0'))
                                     .arg(i % 2 ? QStringLiteral("mov") : QStringLiteral("png"));
            QFile(QDir(folder).filePath(name)).open(QIODevice::WriteOnly);
        }
        store = std::make_unique<IniSettingsStore>(dir.filePath(QStringLiteral("q.conf")));
        preferences = std::make_unique<Preferences>(*store);
        (void)preferences->setOutputDirectory(folder);
        preferences->setSearchImageText(false);
        model = std::make_unique<LibraryModel>(*preferences, nullptr);
        bool listed = false;
        QObject::connect(model.get(), &LibraryModel::reloaded, [&listed] { listed = true; });
        model->reload(false);
        test::waitUntil([&] { return listed; }, std::chrono::seconds(60));
        thumbnails = std::make_unique<ThumbnailLoader>(
            ThumbnailCache(dir.filePath(QStringLiteral("thumbs"))), ThumbnailCache::Size::Large);
        rows = std::make_unique<CaptureGridModel>(*model, *thumbnails);
        grid = std::make_unique<CaptureGrid>(*rows, *thumbnails);
        grid->resize(700, 620);
    }
};

void BM_FilterChangeAndFirstPaint(benchmark::State& state) {
    Scene scene(int(state.range(0)));
    QPixmap target(scene.grid->size());
    bool videos = false;
    for (auto _ : state) {
        videos = !videos;
        scene.model->setFilter(videos ? MediaKind::Videos : MediaKind::Images);
        scene.grid->render(&target);
        // The thumbnails asked for are not what is measured.
        scene.thumbnails->keepOnly({});
    }
    state.counters["rows"] = double(scene.rows->rowCount());
}
BENCHMARK(BM_FilterChangeAndFirstPaint)->Arg(1000)->Arg(10000)->Unit(benchmark::kMillisecond);

// One keystroke in the search field: the list narrows and the grid paints.
void BM_SearchKeystroke(benchmark::State& state) {
    Scene scene(int(state.range(0)));
    QPixmap target(scene.grid->size());
    bool narrow = false;
    for (auto _ : state) {
        narrow = !narrow;
        scene.model->setSearchText(narrow ? QStringLiteral("quillmark 0") : QStringLiteral("q"));
        scene.grid->render(&target);
        scene.thumbnails->keepOnly({});
    }
    state.counters["rows"] = double(scene.rows->rowCount());
}
BENCHMARK(BM_SearchKeystroke)->Arg(10000)->Unit(benchmark::kMillisecond);

} // namespace
