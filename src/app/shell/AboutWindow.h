#pragma once

#include <QWidget>

namespace qm {

// The small About window: icon, name, version and tag line.
class AboutWindow : public QWidget {
    Q_OBJECT
public:
    explicit AboutWindow(QWidget* parent = nullptr);
    static QString tagLine();
};

} // namespace qm
