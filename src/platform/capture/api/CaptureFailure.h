#pragma once

#include "base/Result.h"

#include <QString>

namespace qm {

enum class CaptureError { NoDisplay, NoWindow, CaptureFailed };

// A capture that did not happen: the kind, and for failures of the display server or of a
// backend that cannot capture here, the one-sentence reason the user is shown.
struct CaptureFailure {
    CaptureError error = CaptureError::CaptureFailed;
    QString reason;
    friend bool operator==(const CaptureFailure&, const CaptureFailure&) = default;
};

// The outcome of an asynchronous capture step: the value, or why there is none.
template <class T> using CaptureResult = Result<T, CaptureFailure>;

} // namespace qm
