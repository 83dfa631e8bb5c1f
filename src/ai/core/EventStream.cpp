#include "ai/core/EventStream.h"

#include <QJsonArray>

namespace qm::ai {

QList<EventStream::Event> EventStream::feed(const QByteArray& bytes) {
    QList<Event> out;
    m_pending += bytes;
    qsizetype start = 0;
    for (;;) {
        const qsizetype end = m_pending.indexOf('\n', start);
        if (end < 0)
            break;
        QByteArray line = m_pending.mid(start, end - start);
        if (line.endsWith('\r'))
            line.chop(1);
        takeLine(std::move(line), out);
        start = end + 1;
    }
    m_pending.remove(0, start);
    return out;
}

void EventStream::takeLine(QByteArray line, QList<Event>& out) {
    if (line.isEmpty()) {
        if (m_hasData)
            out.append({m_type.isEmpty() ? QByteArrayLiteral("message") : m_type, m_data});
        m_type.clear();
        m_data.clear();
        m_hasData = false;
        return;
    }
    if (line.startsWith(':')) // a comment, sent to keep the connection alive
        return;
    const qsizetype colon = line.indexOf(':');
    const QByteArray field = colon < 0 ? line : line.left(colon);
    QByteArray value = colon < 0 ? QByteArray() : line.mid(colon + 1);
    if (value.startsWith(' '))
        value.remove(0, 1);
    if (field == "event") {
        m_type = value;
    } else if (field == "data") {
        if (m_hasData)
            m_data += '\n';
        m_data += value;
        m_hasData = true;
    }
}

MessageStream::Step MessageStream::apply(const QJsonObject& event) {
    m_changed = false;
    const QString type = event.value(QLatin1String("type")).toString();
    const int index = event.value(QLatin1String("index")).toInt(-1);
    if (type == QLatin1String("content_block_start")) {
        const QJsonObject block = event.value(QLatin1String("content_block")).toObject();
        // An empty first block changes nothing; a later one adds its line feed.
        const QString before = text();
        Block& b = m_blocks[index];
        b.isText = block.value(QLatin1String("type")).toString() == QLatin1String("text");
        b.text = b.isText ? block.value(QLatin1String("text")).toString() : QString();
        m_changed = text() != before;
    } else if (type == QLatin1String("content_block_delta")) {
        const QJsonObject delta = event.value(QLatin1String("delta")).toObject();
        if (delta.value(QLatin1String("type")).toString() != QLatin1String("text_delta"))
            return Step::More;
        auto found = m_blocks.find(index);
        if (found == m_blocks.end()) // a delta without its start still carries text
            found = m_blocks.emplace(index, Block{true, {}}).first;
        if (!found->second.isText)
            return Step::More;
        const QString piece = delta.value(QLatin1String("text")).toString();
        found->second.text += piece;
        m_changed = !piece.isEmpty();
    } else if (type == QLatin1String("error")) {
        m_error = event.value(QLatin1String("error"))
                      .toObject()
                      .value(QLatin1String("message"))
                      .toString();
        if (m_error.isEmpty())
            m_error = QStringLiteral("The API reported an error without a message.");
        return Step::Failed;
    } else if (type == QLatin1String("message_stop")) {
        return Step::Stopped;
    }
    return Step::More;
}

QString MessageStream::text() const {
    QStringList texts;
    for (const auto& [index, block] : m_blocks)
        if (block.isText)
            texts << block.text;
    return texts.join(QLatin1Char('\n'));
}

QString textOfMessage(const QJsonObject& message) {
    QStringList texts;
    for (const QJsonValue& value : message.value(QLatin1String("content")).toArray()) {
        const QJsonObject block = value.toObject();
        const QJsonValue text = block.value(QLatin1String("text"));
        if (block.value(QLatin1String("type")).toString() == QLatin1String("text") &&
            text.isString())
            texts << text.toString();
    }
    return texts.join(QLatin1Char('\n'));
}

} // namespace qm::ai
