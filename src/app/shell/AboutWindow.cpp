#include "app/shell/AboutWindow.h"

#include "base/AppId.h"

#include <QApplication>
#include <QIcon>
#include <QLabel>
#include <QShortcut>
#include <QVBoxLayout>

namespace qm {

AboutWindow::AboutWindow(QWidget* parent)
    : QWidget(parent, Qt::Window) {
    setWindowTitle(QStringLiteral("About Quillmark"));
    setAttribute(Qt::WA_DeleteOnClose, false);

    auto* layout = new QVBoxLayout(this);
    layout->setContentsMargins(32, 28, 32, 24);
    layout->setSpacing(8);

    auto* icon = new QLabel(this);
    const QIcon appIcon =
        QIcon::fromTheme(applicationId, QIcon(QStringLiteral(":/quillmark/icons/quillmark.svg")));
    icon->setPixmap(appIcon.pixmap(72, 72));
    icon->setAlignment(Qt::AlignHCenter);
    layout->addWidget(icon);

    auto* name = new QLabel(QStringLiteral("Quillmark"), this);
    QFont nameFont = name->font();
    nameFont.setPointSizeF(nameFont.pointSizeF() * 1.6);
    nameFont.setWeight(QFont::DemiBold);
    name->setFont(nameFont);
    name->setAlignment(Qt::AlignHCenter);
    layout->addWidget(name);

    auto* version =
        new QLabel(QStringLiteral("Version ") + QApplication::applicationVersion(), this);
    version->setAlignment(Qt::AlignHCenter);
    version->setForegroundRole(QPalette::PlaceholderText);
    layout->addWidget(version);

    auto* tag = new QLabel(tagLine(), this);
    tag->setAlignment(Qt::AlignHCenter);
    tag->setWordWrap(true);
    layout->addWidget(tag);

    // Escape closes it, like any small informational window.
    auto* close = new QShortcut(QKeySequence(Qt::Key_Escape), this);
    connect(close, &QShortcut::activated, this, &QWidget::close);

    setFixedSize(sizeHint().expandedTo(QSize(320, 0)));
}

// Says only what the program does today; recording joins it when it ships.
QString AboutWindow::tagLine() {
    return QStringLiteral("Screenshots and annotations for the Linux desktop");
}

} // namespace qm
