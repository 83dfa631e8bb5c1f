#include "library/ui/CaptureLibraryController.h"

#include "library/model/LibraryModel.h"
#include "library/ui/CaptureLibraryView.h"
#include "ui/ClosingWindow.h"

#include <QCloseEvent>
#include <QGuiApplication>
#include <QMetaObject>
#include <QScreen>
#include <QVBoxLayout>
#include <QWidget>
#include <algorithm>

namespace qm::library {

namespace {

// The top-level window; says when it has closed.
class LibraryWindow final : public ClosingWindow {
public:
    using ClosingWindow::ClosingWindow;
};

} // namespace

struct CaptureLibraryController::Private {
    Services services;
    std::unique_ptr<LibraryModel> model;
    std::unique_ptr<LibraryWindow> window;
    CaptureLibraryView* view = nullptr;
};

CaptureLibraryController::CaptureLibraryController(Services services, QObject* parent)
    : QObject(parent)
    , d(std::make_unique<Private>(Private{services, nullptr, nullptr, nullptr})) {
    d->model = std::make_unique<LibraryModel>(services.preferences, &services.index);
}

CaptureLibraryController::~CaptureLibraryController() {
    d->window.reset(); // the view refers to the model
}

QWidget* CaptureLibraryController::window() const {
    return d->window.get();
}

LibraryModel& CaptureLibraryController::model() const {
    return *d->model;
}

CaptureLibraryView* CaptureLibraryController::view() const {
    return d->view;
}

void CaptureLibraryController::show() {
    if (!d->window) {
        d->window = std::make_unique<LibraryWindow>([this] {
            // Told once the window has finished closing, so the owner may delete us.
            QMetaObject::invokeMethod(
                this,
                [this] {
                    if (onClosed)
                        onClosed();
                },
                Qt::QueuedConnection);
        });
        d->window->setWindowTitle(tr("All Captures"));
        // Wide enough for two columns of captures beside the editor's full toolbar, where
        // the screen has room; never narrower than 1160.
        const QScreen* screen = QGuiApplication::primaryScreen();
        const int room = screen ? int(screen->availableGeometry().width() * 0.92) : 1160;
        d->window->resize(std::max(1160, std::min(1340, room)), 700);
        d->window->setMinimumSize(760, 440);
        auto* layout = new QVBoxLayout(d->window.get());
        layout->setContentsMargins(0, 0, 0, 0);
        d->view = new CaptureLibraryView({*d->model, d->services.preferences, d->services.index,
                                          d->services.editorSettings, d->services.toasts},
                                         thumbnailRoot, d->window.get());
        d->view->movieSound = movieSound;
        d->view->onTrim = [this](media::player::TrimSession& session, double start, double end) {
            if (onTrim)
                onTrim(session, start, end);
        };
        d->view->onExportGif = [this](media::player::TrimSession& session, double start,
                                      double end) {
            if (onExportGif)
                onExportGif(session, start, end);
        };
        d->view->onSaved = [this](const QString& path) {
            if (onSaved)
                onSaved(path);
        };
        layout->addWidget(d->view);
        d->model->reload(/*keepSelection=*/false);
    }
    // Set late by some owners: the button follows the callback each time the window shows.
    if (onAskAI)
        d->view->setAskAI([this](const QImage& image) {
            if (onAskAI)
                onAskAI(image);
        });
    else
        d->view->setAskAI({});
    d->window->show();
    d->window->raise();
    d->window->activateWindow();
}

void CaptureLibraryController::close() {
    if (d->window)
        d->window->close();
}

void CaptureLibraryController::reload() {
    d->model->reload(/*keepSelection=*/true);
}

} // namespace qm::library
