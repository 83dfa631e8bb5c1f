#pragma once

#include "editor/model/Annotation.h"
#include "editor/model/AnnotationDocument.h"
#include "editor/model/Backdrop.h"
#include "editor/model/ToolStyles.h"
#include "editor/model/ZoomState.h"

#include <QImage>
#include <QObject>
#include <functional>
#include <optional>

namespace qm {

class SettingsStore;

// One editor window's state, made of its parts: the document with its undo history, the
// remembered tool styles, the backdrop and the zoom. It owns the active tool and the colour
// and width drawn with, and does what spans parts: switching tools (which stores and loads
// styles and enters or leaves crop mode), and the formatting controls, which edit the selected
// mark or the defaults. Every published field emits its *Changed signal when its value
// changes. UI thread only.
class EditorModel : public QObject {
    Q_OBJECT

public:
    // `settings` is the program's one settings store and must outlive the model. Construction
    // writes "markup.fontSize" (a new editor always starts from a size suited to the image).
    EditorModel(const QImage& image, SettingsStore& settings, QObject* parent = nullptr);
    ~EditorModel() override;

    AnnotationDocument& document() { return m_document; }
    const AnnotationDocument& document() const { return m_document; }
    ToolStyles& styles() { return m_styles; }
    const ToolStyles& styles() const { return m_styles; }
    Backdrop& backdrop() { return m_backdrop; }
    const Backdrop& backdrop() const { return m_backdrop; }
    ZoomState& zoom() { return m_zoom; }
    const ZoomState& zoom() const { return m_zoom; }

    QSize pixelSize() const { return m_document.pixelSize(); }

    // --- Tool and style ---
    AnnotationTool tool() const { return m_tool; }
    // Stores the outgoing tool's style, loads the incoming one, enters or leaves crop mode and
    // ends OCR selection. Runs on every assignment, even of the same tool.
    void setTool(AnnotationTool tool);
    bool ocrSelecting() const { return m_ocrSelecting; }
    void setOcrSelecting(bool on);
    QColor color() const { return m_color; }
    void setColor(const QColor& color); // remembered for the active tool
    double lineWidth() const { return m_lineWidth; }
    void setLineWidth(double width); // remembered for the active tool if width-styled
    // The remembered style of a tool, else the current colour and width.
    ToolStyle style(AnnotationTool tool) const;
    void setDefaultColor(const QColor& color, AnnotationTool tool);
    void setDefaultLineWidth(double width, AnnotationTool tool);

    // What the formatting popovers edit: the selected mark's tool while selecting, else the
    // active tool.
    AnnotationTool configurationTool() const;
    bool configurationTargetsSelection() const;
    QColor displayColor() const;
    double displayLineWidth() const;
    // Sets the colour for the configuration tool and recolours the selection; a run of
    // recolours of one selected mark costs a single undo step.
    void applyConfigurationColor(const QColor& color);
    void applyLineWidth(double width); // clamped to 1…40

    // --- Text formatting ---
    // The text being typed, else the selected one, if it is a text annotation.
    bool hasTargetedText() const;
    double displayFontSize() const;
    bool displayTextHasBackground() const;
    QColor displayTextColor() const;
    // Resizes the targeted text (the default stays), else sets the default; clamped to 10…300.
    void setFontSize(double size);
    // Flips the targeted text's chip and makes that the default, else flips the default.
    void toggleTextBackground();
    void applyTextColor(const QColor& color);

    // --- Commands that use the current style or leave a mode ---
    // Adds the next numbered step badge at `center` with the current colour.
    void addStep(QPointF center);
    // Keeps the edited crop and returns to the select tool.
    void commitCrop();
    // Drops the edited crop and returns to the select tool.
    void cancelCrop();

Q_SIGNALS:
    void toolChanged();
    void ocrSelectingChanged();
    void colorChanged();
    void lineWidthChanged();

private:
    std::optional<QUuid> textTarget() const;
    // Shows a tool's stored style in the current colour and width without storing it again.
    void loadStyle(const std::function<void()>& load);

    AnnotationDocument m_document;
    ToolStyles m_styles;
    Backdrop m_backdrop;
    ZoomState m_zoom;
    AnnotationTool m_tool = AnnotationTool::Arrow;
    bool m_ocrSelecting = false;
    QColor m_color;
    double m_lineWidth = 4;
    bool m_isLoadingToolStyle = false;
};

} // namespace qm
