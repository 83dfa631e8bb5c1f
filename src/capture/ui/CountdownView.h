#pragma once

#include <QWidget>
#include <functional>

class QAbstractButton;

namespace qm {

class CountdownState;

// The countdown panel: the seconds left and a Cancel button. A floating window that takes
// clicks but never the keyboard focus.
class CountdownView final : public QWidget {
    Q_OBJECT
public:
    CountdownView(const CountdownState& state, std::function<void()> onCancel);

    QAbstractButton* cancelButton() const { return cancelButton_; }
    // Whether the pointer is over the Cancel button.
    bool cancelHover() const;

    QSize sizeHint() const override;

protected:
    void paintEvent(QPaintEvent* event) override;
    void resizeEvent(QResizeEvent* event) override;

private:
    QFont digitFont() const;

    const CountdownState& state_;
    std::function<void()> onCancel_;
    QAbstractButton* cancelButton_ = nullptr;
};

} // namespace qm
