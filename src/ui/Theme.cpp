#include "ui/Theme.h"

#include <QGuiApplication>
#include <QPalette>

namespace qm {

namespace {
QPalette lightPalette() {
    QPalette p;
    p.setColor(QPalette::Window, QColor(0xf6, 0xf6, 0xf6));
    p.setColor(QPalette::WindowText, QColor(0x1d, 0x1d, 0x1f));
    p.setColor(QPalette::Base, Qt::white);
    p.setColor(QPalette::AlternateBase, QColor(0xf0, 0xf0, 0xf2));
    p.setColor(QPalette::ToolTipBase, QColor(0xff, 0xff, 0xf0));
    p.setColor(QPalette::ToolTipText, QColor(0x1d, 0x1d, 0x1f));
    p.setColor(QPalette::PlaceholderText, QColor(0x8e, 0x8e, 0x93));
    p.setColor(QPalette::Text, QColor(0x1d, 0x1d, 0x1f));
    p.setColor(QPalette::Button, QColor(0xfc, 0xfc, 0xfc));
    p.setColor(QPalette::ButtonText, QColor(0x1d, 0x1d, 0x1f));
    p.setColor(QPalette::BrightText, Qt::red);
    p.setColor(QPalette::Light, Qt::white);
    p.setColor(QPalette::Midlight, QColor(0xe5, 0xe5, 0xe5));
    p.setColor(QPalette::Mid, QColor(0xc7, 0xc7, 0xcc));
    p.setColor(QPalette::Dark, QColor(0x9a, 0x9a, 0x9e));
    p.setColor(QPalette::Shadow, QColor(0x50, 0x50, 0x50));
    p.setColor(QPalette::Highlight, QColor(0x0a, 0x84, 0xff));
    p.setColor(QPalette::HighlightedText, Qt::white);
    p.setColor(QPalette::Link, QColor(0x0a, 0x64, 0xd8));
    p.setColor(QPalette::Disabled, QPalette::Text, QColor(0xa0, 0xa0, 0xa5));
    p.setColor(QPalette::Disabled, QPalette::WindowText, QColor(0xa0, 0xa0, 0xa5));
    p.setColor(QPalette::Disabled, QPalette::ButtonText, QColor(0xa0, 0xa0, 0xa5));
    return p;
}

QPalette darkPalette() {
    QPalette p;
    p.setColor(QPalette::Window, QColor(0x26, 0x26, 0x28));
    p.setColor(QPalette::WindowText, QColor(0xf2, 0xf2, 0xf7));
    p.setColor(QPalette::Base, QColor(0x1c, 0x1c, 0x1e));
    p.setColor(QPalette::AlternateBase, QColor(0x2c, 0x2c, 0x2e));
    p.setColor(QPalette::ToolTipBase, QColor(0x3a, 0x3a, 0x3c));
    p.setColor(QPalette::ToolTipText, QColor(0xf2, 0xf2, 0xf7));
    p.setColor(QPalette::PlaceholderText, QColor(0x8e, 0x8e, 0x93));
    p.setColor(QPalette::Text, QColor(0xf2, 0xf2, 0xf7));
    p.setColor(QPalette::Button, QColor(0x3a, 0x3a, 0x3c));
    p.setColor(QPalette::ButtonText, QColor(0xf2, 0xf2, 0xf7));
    p.setColor(QPalette::BrightText, QColor(0xff, 0x45, 0x3a));
    p.setColor(QPalette::Light, QColor(0x48, 0x48, 0x4a));
    p.setColor(QPalette::Midlight, QColor(0x3a, 0x3a, 0x3c));
    p.setColor(QPalette::Mid, QColor(0x2c, 0x2c, 0x2e));
    p.setColor(QPalette::Dark, QColor(0x1c, 0x1c, 0x1e));
    p.setColor(QPalette::Shadow, Qt::black);
    p.setColor(QPalette::Highlight, QColor(0x0a, 0x84, 0xff));
    p.setColor(QPalette::HighlightedText, Qt::white);
    p.setColor(QPalette::Link, QColor(0x40, 0x9c, 0xff));
    p.setColor(QPalette::Disabled, QPalette::Text, QColor(0x6e, 0x6e, 0x73));
    p.setColor(QPalette::Disabled, QPalette::WindowText, QColor(0x6e, 0x6e, 0x73));
    p.setColor(QPalette::Disabled, QPalette::ButtonText, QColor(0x6e, 0x6e, 0x73));
    return p;
}
} // namespace

void applyApplicationTheme(AppTheme theme) {
    if (!qobject_cast<QGuiApplication*>(QCoreApplication::instance()))
        return;
    switch (theme) {
    case AppTheme::System:
        // An empty palette resolves against the platform theme's own colours.
        QGuiApplication::setPalette(QPalette());
        break;
    case AppTheme::Light:
        QGuiApplication::setPalette(lightPalette());
        break;
    case AppTheme::Dark:
        QGuiApplication::setPalette(darkPalette());
        break;
    }
}

} // namespace qm
