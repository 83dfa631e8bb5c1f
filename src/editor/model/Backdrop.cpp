#include "editor/model/Backdrop.h"

#include "base/SettingsStore.h"

#include <algorithm>

namespace qm {

namespace {

const QString keyPreset = QStringLiteral("markup.background.preset");
const QString keyPadding = QStringLiteral("markup.background.padding");
const QString keyCornerRadius = QStringLiteral("markup.background.cornerRadius");
const QString keyShadow = QStringLiteral("markup.background.shadow");

} // namespace

Backdrop::Backdrop(SettingsStore& settings, QObject* parent)
    : QObject(parent)
    , m_settings(settings) {}

void Backdrop::setBackground(const std::optional<BackgroundStyle>& style) {
    if (m_background != style) {
        m_background = style;
        Q_EMIT backgroundChanged();
    }
    if (style) {
        m_settings.setValue(keyPreset, style->presetID);
        m_settings.setValue(keyPadding, style->padding);
        m_settings.setValue(keyCornerRadius, style->cornerRadius);
        m_settings.setValue(keyShadow, style->shadow);
    }
}

BackgroundStyle Backdrop::savedBackgroundStyle() const {
    BackgroundStyle s;
    s.presetID = m_settings.stringValue(keyPreset).value_or(QStringLiteral("indigo"));
    const double padding = m_settings.doubleValue(keyPadding);
    s.padding = padding < 16 ? 48 : padding;
    if (m_settings.value(keyCornerRadius))
        s.cornerRadius = std::max(0.0, m_settings.doubleValue(keyCornerRadius));
    else
        s.cornerRadius = 18;
    s.shadow = true;
    if (const auto v = m_settings.value(keyShadow)) {
        // The INI file gives booleans back as text.
        if (v->typeId() == QMetaType::Bool)
            s.shadow = v->toBool();
        else if (v->toString() == QLatin1String("false"))
            s.shadow = false;
    }
    return s;
}

} // namespace qm
