#include "editor/ui/AnnotationEditorController.h"

#include "base/ImageExport.h"
#include "editor/model/EditorModel.h"
#include "editor/render/Flatten.h"
#include "editor/ui/AnnotationCanvas.h"
#include "editor/ui/AnnotationEditorView.h"

#include <QCloseEvent>
#include <QCursor>
#include <QGuiApplication>
#include <QScreen>
#include <QTimer>
#include <QVBoxLayout>
#include <QWidget>
#include <algorithm>
#include <cmath>

namespace qm {

// The top-level editor window; tells its controller when the user closes it. It keeps the
// document alive until its own widgets are gone, since it is deleted later than the
// controller that opened it may be.
class EditorWindow final : public QWidget {
public:
    EditorWindow(std::shared_ptr<EditorModel> model, std::function<void()> onClose)
        : QWidget(nullptr, Qt::Window | Qt::CustomizeWindowHint | Qt::WindowTitleHint |
                               Qt::WindowCloseButtonHint | Qt::WindowMaximizeButtonHint)
        , m_model(std::move(model))
        , m_onClose(std::move(onClose)) {}
    ~EditorWindow() override {
        // The widgets watch the document: they go first.
        qDeleteAll(findChildren<QWidget*>(Qt::FindDirectChildrenOnly));
    }
    void forgetController() { m_onClose = nullptr; }

protected:
    void closeEvent(QCloseEvent* event) override {
        event->accept();
        if (m_onClose)
            m_onClose();
    }

private:
    std::shared_ptr<EditorModel> m_model;
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
    , m_model(std::make_shared<EditorModel>(image, settings)) {}

AnnotationEditorController::~AnnotationEditorController() {
    // Deferred: the controller may be destroyed from a handler running inside the window.
    if (m_window) {
        m_window->forgetController();
        m_window->hide();
        m_window->deleteLater();
    }
}

QSize AnnotationEditorController::windowSize(QSize pixels, std::optional<QRect> visibleFrame) {
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
        m_window = new EditorWindow(m_model, [this] { windowWillClose(); });
        m_window->setWindowTitle(tr("Quillmark Editor"));
        m_window->setMinimumSize(minimumSize);
        auto* layout = new QVBoxLayout(m_window);
        layout->setContentsMargins(0, 0, 0, 0);
        m_view = new AnnotationEditorView(*m_model, m_window);
        m_view->onCopy = [this] { copy(); };
        m_view->onDone = [this] { complete(true); };
        layout->addWidget(m_view);
        m_view->attachKeyHandler(*m_window);

        QScreen* screen = QGuiApplication::screenAt(QCursor::pos());
        if (!screen)
            screen = QGuiApplication::primaryScreen();
        const std::optional<QRect> frame =
            screen ? std::optional<QRect>(screen->availableGeometry()) : std::nullopt;
        const QSize size = windowSize(m_model->pixelSize(), frame);
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

void AnnotationEditorController::copy() {
    m_model->document().commitPendingText();
    ImageExport::copyToPasteboard(flatten(*m_model));
    if (m_onToast)
        m_onToast(tr("Copied"), QStringLiteral("edit-copy"));
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
