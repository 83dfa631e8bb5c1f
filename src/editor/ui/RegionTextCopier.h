#pragma once

#include <QObject>
#include <QRectF>
#include <QString>
#include <QTimer>
#include <optional>

namespace qm {

class EditorModel;

// "Copy text from a selection": reads the text in a region of the unannotated capture (marks
// never hide text) onto the clipboard, and keeps the capsule message the canvas shows: the
// prompt while a region is being picked, then the outcome for 1.4 seconds.
class RegionTextCopier : public QObject {
    Q_OBJECT

public:
    explicit RegionTextCopier(const EditorModel& model, QObject* parent = nullptr);

    // Starts reading `rect` (image pixels); recognition runs off the GUI thread.
    void copyTextInRegion(const QRectF& rect);
    // Shows `text` in the capsule for 1.4 seconds.
    void flashMessage(const QString& text);
    // The capsule's text now, if any.
    std::optional<QString> capsuleText() const;

Q_SIGNALS:
    // A run finished; `found` is false when nothing was read.
    void textCopied(bool found);
    // capsuleText() changed.
    void capsuleChanged();

private:
    const EditorModel& m_model;
    std::optional<QString> m_message;
    QTimer m_messageTimer;
};

} // namespace qm
