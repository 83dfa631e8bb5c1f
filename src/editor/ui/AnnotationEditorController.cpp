#include "editor/ui/AnnotationEditorController.h"

#include "base/ImageExport.h"
#include "base/SafeWrite.h"
#include "editor/model/EditorModel.h"
#include "editor/render/Flatten.h"
#include "editor/ui/AnnotationCanvas.h"
#include "editor/ui/AnnotationEditorView.h"
#include "editor/ui/EditorKeyHandler.h"
#include "editor/ui/EditorToolbar.h"

#include <QCloseEvent>
#include <QCursor>
#include <QDir>
#include <QFileDialog>
#include <QFileInfo>
#include <QFutureWatcher>
#include <QGuiApplication>
#include <QMessageBox>
#include <QScreen>
#include <QShortcut>
#include <QStandardPaths>
#include <QTimer>
#include <QVBoxLayout>
#include <QWidget>
#include <QtConcurrent/QtConcurrentRun>
#include <algorithm>
#include <cmath>

namespace qm {

// The top-level editor window; asks its controller before it closes and tells it once it
// does. It keeps the document alive until its own widgets are gone, since it is deleted later
// than the controller that opened it may be.
class EditorWindow final : public QWidget {
public:
    EditorWindow(std::shared_ptr<EditorModel> model, std::function<bool()> mayClose,
                 std::function<void()> onClose)
        : QWidget(nullptr, Qt::Window | Qt::CustomizeWindowHint | Qt::WindowTitleHint |
                               Qt::WindowCloseButtonHint | Qt::WindowMaximizeButtonHint)
        , m_model(std::move(model))
        , m_mayClose(std::move(mayClose))
        , m_onClose(std::move(onClose)) {}
    ~EditorWindow() override {
        // The widgets watch the document: they go first.
        qDeleteAll(findChildren<QWidget*>(Qt::FindDirectChildrenOnly));
    }
    void forgetController() {
        m_mayClose = nullptr;
        m_onClose = nullptr;
    }

protected:
    void closeEvent(QCloseEvent* event) override {
        if (m_mayClose && !m_mayClose()) {
            event->ignore();
            return;
        }
        event->accept();
        if (m_onClose)
            m_onClose();
    }

private:
    std::shared_ptr<EditorModel> m_model;
    std::function<bool()> m_mayClose;
    std::function<void()> m_onClose;
};

namespace {

// Room for the margins around the image and for the toolbar (points).
constexpr double marginRoom = 56;
constexpr double toolbarRoom = 78;
const QSize minimumSize(760, 480);

} // namespace

AnnotationEditorController::AnnotationEditorController(const QImage& image, SettingsStore& settings,
                                                       FinishCallback onFinish,
                                                       ToastCallback onToast, QObject* parent)
    : QObject(parent)
    , m_onFinish(std::move(onFinish))
    , m_onToast(std::move(onToast))
    , m_model(std::make_shared<EditorModel>(image, settings))
    , m_savedState(currentState()) {}

AnnotationEditorController::~AnnotationEditorController() {
    // Deferred: the controller may be destroyed from a handler running inside the window.
    if (m_window) {
        m_window->forgetController();
        m_window->hide();
        m_window->deleteLater();
    }
}

QSize AnnotationEditorController::windowSize(QSize pixels, std::optional<QRect> visibleFrame) {
    return windowSize(pixels, visibleFrame, marginRoom, toolbarRoom);
}

QSize AnnotationEditorController::windowSize(QSize pixels, std::optional<QRect> visibleFrame,
                                             double marginRoom, double toolbarRoom) {
    const QSizeF screen = visibleFrame ? QSizeF(visibleFrame->size()) : QSizeF(1280, 800);
    const double maxW = 0.8 * screen.width(), maxH = 0.8 * screen.height();
    const double aspect = double(pixels.width()) / std::max(pixels.height(), 1);
    double w = std::min(pixels.width() + marginRoom, maxW);
    double h = (w - marginRoom) / aspect + marginRoom + toolbarRoom;
    if (h > maxH) {
        h = maxH;
        w = (maxH - marginRoom - toolbarRoom) * aspect + marginRoom;
    }
    return QSize(std::max(int(std::lround(w)), minimumSize.width()),
                 std::max(int(std::lround(h)), minimumSize.height()));
}

QWidget* AnnotationEditorController::window() const {
    return m_window;
}

AnnotationEditorView* AnnotationEditorController::view() const {
    return m_view;
}

void AnnotationEditorController::show() {
    if (m_finished)
        return;
    if (!m_window) {
        m_window = new EditorWindow(
            m_model, [this] { return windowMayClose(); }, [this] { windowWillClose(); });
        m_window->setWindowTitle(tr("Quillmark Editor"));
        m_window->setMinimumSize(minimumSize);
        auto* layout = new QVBoxLayout(m_window);
        layout->setContentsMargins(0, 0, 0, 0);
        m_view = new AnnotationEditorView(*m_model, m_window);
        m_view->onCopy = [this] { copy(); };
        m_view->onDone = [this] { saveAndFinish(); };
        m_view->toolbar()->setAskAI(onAskAI ? std::function<void()>([this] { askAI(); })
                                            : std::function<void()>());
        layout->addWidget(m_view);
        m_view->attachKeyHandler(*m_window);
        auto* saveKey = new QShortcut(QKeySequence::Save, m_window);
        connect(saveKey, &QShortcut::activated, this, &AnnotationEditorController::save);
        auto* saveAsKey = new QShortcut(QKeySequence(Qt::CTRL | Qt::SHIFT | Qt::Key_S), m_window);
        connect(saveAsKey, &QShortcut::activated, this, &AnnotationEditorController::saveAs);

        QScreen* screen = QGuiApplication::screenAt(QCursor::pos());
        if (!screen)
            screen = QGuiApplication::primaryScreen();
        const std::optional<QRect> frame =
            screen ? std::optional<QRect>(screen->availableGeometry()) : std::nullopt;
        // Sized from the room the view really takes around the image, so an image that fits
        // the screen opens at full size, not a blurry step below it.
        const QSize size =
            windowSize(m_model->pixelSize(), frame, m_view->marginRoom(), m_view->chromeHeight());
        m_window->resize(size);
        if (frame) {
            const QRect centred(frame->center() - QPoint(size.width() / 2, size.height() / 2),
                                size);
            m_window->move(centred.topLeft());
        }
    }
    m_window->show();
    m_window->raise();
    m_window->activateWindow();
    m_view->canvas()->setFocus(Qt::OtherFocusReason);
}

AnnotationEditorView* AnnotationEditorController::embed(QWidget& container) {
    if (m_view)
        return m_view;
    m_container = &container;
    m_view = new AnnotationEditorView(*m_model, &container);
    m_view->onCopy = [this] { copy(); };
    m_view->onDone = [this] { save(); };
    m_view->toolbar()->setAskAI(onAskAI ? std::function<void()>([this] { askAI(); })
                                        : std::function<void()>());
    if (auto* layout = container.layout())
        layout->addWidget(m_view);
    // The keys are read for the whole window the container sits in, and stop with the view.
    m_view->attachKeyHandler(*container.window());
    m_view->keyHandler()->setScope(m_view);
    connect(m_view, &QObject::destroyed, m_view->keyHandler(),
            [handler = QPointer<QObject>(m_view->keyHandler())] { delete handler.data(); });
    auto* saveKey = new QShortcut(QKeySequence::Save, m_view);
    saveKey->setContext(Qt::WidgetWithChildrenShortcut);
    connect(saveKey, &QShortcut::activated, this, &AnnotationEditorController::save);
    auto* saveAsKey = new QShortcut(QKeySequence(Qt::CTRL | Qt::SHIFT | Qt::Key_S), m_view);
    saveAsKey->setContext(Qt::WidgetWithChildrenShortcut);
    connect(saveAsKey, &QShortcut::activated, this, &AnnotationEditorController::saveAs);
    return m_view;
}

void AnnotationEditorController::askAI() {
    m_model->document().commitPendingText();
    if (onAskAI)
        onAskAI(flatten(*m_model));
}

void AnnotationEditorController::copy() {
    m_model->document().commitPendingText();
    ImageExport::copyToPasteboard(flatten(*m_model));
    if (m_onToast)
        m_onToast(tr("Copied"), QStringLiteral("edit-copy"), ToastCenter::Style::Plain);
}

AnnotationEditorController::SavedState AnnotationEditorController::currentState() const {
    const AnnotationDocument& document = m_model->document();
    return {document.annotations(), document.cropRect(), m_model->backdrop().background()};
}

bool AnnotationEditorController::hasUnsavedChanges() const {
    return currentState() != m_savedState;
}

void AnnotationEditorController::save() {
    if (m_finished || m_writing)
        return;
    if (!m_savedPath && !saveBeside) {
        // A fresh capture: saving it is the capture flow's job, as after Done.
        complete(true);
        return;
    }
    write(m_savedPath, {});
}

void AnnotationEditorController::saveAs() {
    if (m_finished || m_writing)
        return;
    QString suggested;
    if (m_savedPath)
        suggested = *m_savedPath;
    else if (saveBeside)
        suggested = QDir(saveBeside->folder).filePath(saveBeside->stem + QStringLiteral(".png"));
    else
        suggested = QDir(QStandardPaths::writableLocation(QStandardPaths::PicturesLocation))
                        .filePath(ImageExport::fileName(ImageExport::screenshotPrefix,
                                                        QStringLiteral(".png")));
    QWidget* const parent = m_window ? static_cast<QWidget*>(m_window) : m_container.data();
    QString path = chooseSaveFile ? chooseSaveFile(parent, suggested)
                                  : QFileDialog::getSaveFileName(parent, tr("Save As"), suggested,
                                                                 tr("PNG images (*.png)"));
    if (path.isEmpty())
        return;
    if (QFileInfo(path).suffix().compare(QStringLiteral("png"), Qt::CaseInsensitive) != 0)
        path += QStringLiteral(".png");
    write(path, {});
}

void AnnotationEditorController::saveAndFinish() {
    if (m_finished || m_writing)
        return;
    if ((m_savedPath || saveBeside) && hasUnsavedChanges()) {
        write(m_savedPath, [this] { complete(true); });
        return;
    }
    complete(true);
}

void AnnotationEditorController::write(std::optional<QString> path, std::function<void()> then) {
    m_model->document().commitPendingText();
    const QImage image = flatten(*m_model);
    const SavedState state = currentState();
    const std::optional<SaveBeside> beside = saveBeside;
    m_writing = true;
    auto* watcher = new QFutureWatcher<Result<QString>>(this);
    connect(watcher, &QFutureWatcherBase::finished, this,
            [this, watcher, state, then = std::move(then)] {
                watcher->deleteLater();
                m_writing = false;
                const Result<QString> written = watcher->result();
                if (!written) {
                    if (m_onToast)
                        m_onToast(tr("Not saved: %1").arg(written.error().reason),
                                  QStringLiteral("dialog-warning"), ToastCenter::Style::Error);
                    return;
                }
                m_savedPath = *written;
                m_savedState = state;
                if (m_onToast)
                    m_onToast(tr("Saved “%1”").arg(QFileInfo(*written).fileName()),
                              QStringLiteral("document-save"), ToastCenter::Style::Plain);
                // Copies, and a guard: the receiver may end this controller.
                const SavedCallback saved = onSaved;
                const std::function<void()> next = then;
                const QPointer<AnnotationEditorController> alive(this);
                if (saved)
                    saved(*written);
                if (next && alive)
                    next();
            });
    watcher->setFuture(QtConcurrent::run([image, path, beside]() -> Result<QString> {
        const std::optional<QByteArray> png = ImageExport::pngData(image);
        if (!png)
            return failure(QStringLiteral("the image could not be encoded"));
        if (path && QFileInfo::exists(*path)) {
            if (const Status replaced = SafeWrite::replaceFile(*path, *png); !replaced)
                return replaced.error();
            return *path;
        }
        if (path) {
            const QFileInfo info(*path);
            return SafeWrite::writeNewFile(info.absolutePath(), info.completeBaseName(),
                                           QLatin1Char('.') + info.suffix(), *png);
        }
        return SafeWrite::writeNewFile(beside->folder, beside->stem, QStringLiteral(".png"), *png);
    }));
}

bool AnnotationEditorController::windowMayClose() {
    if (m_finished)
        return true;
    m_model->document().commitPendingText();
    if (!hasUnsavedChanges() && !m_writing)
        return true;
    askBeforeClosing();
    return false;
}

void AnnotationEditorController::askBeforeClosing() {
    if (m_asking || !m_window)
        return;
    m_asking = true;
    auto* box = new QMessageBox(
        QMessageBox::Warning, tr("Quillmark Editor"), tr("Save the changes to this capture?"),
        QMessageBox::Save | QMessageBox::Discard | QMessageBox::Cancel, m_window);
    box->setInformativeText(tr("Your changes are lost if you close without saving."));
    box->setDefaultButton(QMessageBox::Save);
    box->setEscapeButton(QMessageBox::Cancel);
    box->setWindowModality(Qt::WindowModal);
    box->setAttribute(Qt::WA_DeleteOnClose);
    connect(box, &QMessageBox::finished, this, [this, box] {
        m_asking = false;
        QAbstractButton* clicked = box->clickedButton();
        const auto button = clicked ? box->standardButton(clicked) : QMessageBox::Cancel;
        closeAnswered(button == QMessageBox::Save      ? CloseChoice::Save
                      : button == QMessageBox::Discard ? CloseChoice::Discard
                                                       : CloseChoice::Cancel);
    });
    box->open();
}

void AnnotationEditorController::closeAnswered(CloseChoice choice) {
    switch (choice) {
    case CloseChoice::Save:
        saveAndFinish();
        break;
    case CloseChoice::Discard:
        complete(false);
        break;
    case CloseChoice::Cancel:
        break;
    }
}

void AnnotationEditorController::complete(bool save) {
    if (m_finished)
        return;
    m_finished = true;
    std::optional<QImage> image;
    if (save) {
        m_model->document().commitPendingText();
        image = flatten(*m_model);
    }
    if (m_window) {
        m_window->close();
        m_window->forgetController();
        m_window->deleteLater();
        m_window.clear();
    }
    // A copy: the receiver may destroy this controller while the callback runs.
    const FinishCallback onFinish = m_onFinish;
    if (onFinish)
        onFinish(image);
}

void AnnotationEditorController::windowWillClose() {
    if (m_finished)
        return;
    m_finished = true;
    m_model->document().commitPendingText();
    // Reported once the window has finished closing, so the receiver may destroy us.
    QTimer::singleShot(0, this, [this] {
        if (m_window) {
            m_window->forgetController();
            m_window->deleteLater();
            m_window.clear();
        }
        const FinishCallback onFinish = m_onFinish;
        if (onFinish)
            onFinish(std::nullopt);
    });
}

} // namespace qm
