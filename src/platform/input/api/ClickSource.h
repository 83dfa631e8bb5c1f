#pragma once

#include "base/Result.h"

#include <QPoint>
#include <QString>
#include <functional>
#include <memory>

namespace qm::platform {

enum class ClickButton { Left, Right };

// A mouse button pressed anywhere on the desktop, in device pixels of the root window.
struct GlobalClick {
    QPoint position;
    ClickButton button = ClickButton::Left;
};

// Watches every click on the desktop without taking it from the window it was meant for.
// Clicks are delivered on the main thread while the watch object lives.
class ClickWatch {
public:
    virtual ~ClickWatch() = default;
};

class ClickSourceBackend {
public:
    using ClickSink = std::function<void(const GlobalClick&)>;

    virtual ~ClickSourceBackend() = default;
    virtual QString name() const = 0; // "x11", "null"
    // Starts watching, or says why clicks cannot be seen in this session.
    virtual Result<std::unique_ptr<ClickWatch>> watch(ClickSink onClick) = 0;
};

} // namespace qm::platform
