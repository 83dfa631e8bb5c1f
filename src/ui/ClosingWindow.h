#pragma once

#include <QCloseEvent>
#include <QWidget>
#include <functional>

namespace qm {

// A top-level window that says when it has been closed, for the controllers that own one.
class ClosingWindow : public QWidget {
public:
    explicit ClosingWindow(std::function<void()> closed, QWidget* parent = nullptr)
        : QWidget(parent)
        , m_closed(std::move(closed)) {}

protected:
    void closeEvent(QCloseEvent* event) override {
        QWidget::closeEvent(event);
        if (m_closed)
            m_closed();
    }

private:
    std::function<void()> m_closed;
};

} // namespace qm
