#pragma once

#include <QByteArray>
#include <QJsonObject>
#include <QList>
#include <QString>
#include <map>

namespace qm::ai {

// Server-sent events read as the bytes arrive, cut anywhere: an event is complete at its blank
// line.
class EventStream {
public:
    struct Event {
        QByteArray type; // "message" when the event names none
        QByteArray data; // the data lines, joined by line feeds
    };
    QList<Event> feed(const QByteArray& bytes);

private:
    void takeLine(QByteArray line, QList<Event>& out);

    QByteArray m_pending;
    QByteArray m_type;
    QByteArray m_data;
    bool m_hasData = false;
};

// The reply the Messages API streams, rebuilt event by event: the text blocks by index, the
// other blocks (tool use, thinking) noted and left out of the text.
class MessageStream {
public:
    enum class Step { More, Stopped, Failed };
    // Applies one event's JSON object.
    Step apply(const QJsonObject& event);

    // The text of the text blocks so far, in order, joined by line feeds.
    QString text() const;
    // Whether the last apply() changed text().
    bool textChanged() const { return m_changed; }
    // The message of an "error" event.
    QString error() const { return m_error; }

private:
    struct Block {
        bool isText = false;
        QString text;
    };
    std::map<int, Block> m_blocks;
    QString m_error;
    bool m_changed = false;
};

// The joined text of a whole (not streamed) Messages reply body; empty when it has none.
QString textOfMessage(const QJsonObject& message);

} // namespace qm::ai
