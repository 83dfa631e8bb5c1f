#include "recorder/core/PauseGate.h"

namespace qm::recorder {

void PauseGate::setPaused(bool paused) {
    if (paused == m_paused)
        return;
    m_paused = paused;
    if (paused) {
        // The next frame marks the start of the pause; a resume that never saw one
        // removes nothing.
        m_anchor.reset();
        m_resuming = false;
    } else {
        m_resuming = true;
    }
}

bool PauseGate::dropVideo(MediaTime pts) {
    if (m_paused) {
        if (!m_anchor)
            m_anchor = pts;
        return true;
    }
    m_resuming = false;
    if (m_anchor) {
        m_offset += pts - *m_anchor;
        m_anchor.reset();
    }
    return false;
}

} // namespace qm::recorder
