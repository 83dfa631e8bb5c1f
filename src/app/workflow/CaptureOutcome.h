#pragma once

#include <QString>
#include <functional>
#include <variant>

namespace qm {

// How one capture ended, for whoever asked for it (the command line waits for this).
namespace outcome {
struct Saved {
    QString path;
};
// Taken, but the file could not be written; the capture is still on screen or the clipboard.
struct NotSaved {
    QString reason;
};
// Handed to the editor without a file (the user saves from there).
struct Editing {};
struct Cancelled {};
// A recording asked for has started; its movie is the outcome of the stop that ends it.
struct Recording {};
struct Failed {
    QString reason;
};
} // namespace outcome
using CaptureOutcome = std::variant<outcome::Saved, outcome::NotSaved, outcome::Editing,
                                    outcome::Cancelled, outcome::Failed, outcome::Recording>;
using OutcomeCallback = std::function<void(const CaptureOutcome&)>;

} // namespace qm
