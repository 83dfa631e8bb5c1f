#pragma once

#include "editor/ui/CanvasGeometry.h"

#include <QObject>
#include <QPointF>
#include <QUuid>
#include <optional>

class QPlainTextEdit;
class QWidget;

namespace qm {

class EditorModel;
class InlineTextEdit;

// Typing into text marks on the canvas: a borderless field laid exactly over the mark, kept in
// step with the mark's string, font, colour and the zoom. Typing ends on Escape, when focus
// moves elsewhere in the window, or when the mark goes away; an empty text is then removed.
class CanvasTextEditor : public QObject {
    Q_OBJECT

public:
    // `canvas` hosts the field; `transform` is the canvas's, read whenever the field moves.
    CanvasTextEditor(EditorModel& model, QWidget& canvas, const canvas::CanvasTransform& transform);
    ~CanvasTextEditor() override;

    // The text mark being typed, if any.
    std::optional<QUuid> editingID() const { return m_editingID; }
    // The field while a text is typed, else null.
    QPlainTextEdit* field() const;
    // The top-most text mark whose text, grown by 6 pixels, contains `at` (image pixels).
    std::optional<QUuid> textAt(QPointF at) const;
    // A click with the text tool: opens the text under `at`, else starts a new one there.
    void click(QPointF at);
    // Opens the text mark `id` for typing and focuses its field.
    void begin(const QUuid& id);
    // Ends typing (an empty text is removed) and keeps the text selected.
    void end();
    // Lays the field over its mark again (after a zoom or an edit of the mark).
    void sync();

private:
    void fieldChanged();

    EditorModel& m_model;
    QWidget& m_canvas;
    const canvas::CanvasTransform& m_transform;
    InlineTextEdit* m_field = nullptr;
    std::optional<QUuid> m_editingID;
    bool m_syncing = false;
};

} // namespace qm
