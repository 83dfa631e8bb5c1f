// Server-sent events cut at any byte, and the streamed message rebuilt from them.
#include "ai/core/EventStream.h"

#include <QJsonDocument>
#include <gtest/gtest.h>

using namespace qm::ai;

namespace {

QList<EventStream::Event> feedInPieces(const QByteArray& bytes, qsizetype piece) {
    EventStream stream;
    QList<EventStream::Event> events;
    for (qsizetype i = 0; i < bytes.size(); i += piece)
        events += stream.feed(bytes.mid(i, piece));
    return events;
}

TEST(EventStream, EventsAreTheSameHoweverTheBytesAreCut) {
    const QByteArray bytes = ": keep-alive\r\n"
                             "event: ping\r\ndata: {}\r\n\r\n"
                             "data: first line\ndata:second line\n\n"
                             "event: only-a-type\n\n" // no data: no event
                             "event: message_stop\ndata: {\"type\":\"message_stop\"}\n\n"
                             "event: unfinished\ndata: {";
    for (const qsizetype piece : {qsizetype(1), qsizetype(3), bytes.size()}) {
        SCOPED_TRACE(piece);
        const QList<EventStream::Event> events = feedInPieces(bytes, piece);
        ASSERT_EQ(events.size(), 3);
        EXPECT_EQ(events[0].type, "ping");
        EXPECT_EQ(events[0].data, "{}");
        EXPECT_EQ(events[1].type, "message");
        EXPECT_EQ(events[1].data, "first line\nsecond line");
        EXPECT_EQ(events[2].type, "message_stop");
    }
}

MessageStream::Step apply(MessageStream& message, const char* json) {
    return message.apply(QJsonDocument::fromJson(json).object());
}

TEST(MessageStream, TextBlocksGrowInOrderAndOtherBlocksStayOut) {
    MessageStream message;
    EXPECT_EQ(apply(message, R"({"type":"content_block_start","index":0,
        "content_block":{"type":"thinking","thinking":""}})"),
              MessageStream::Step::More);
    apply(message, R"({"type":"content_block_delta","index":0,
        "delta":{"type":"text_delta","text":"not shown"}})");
    EXPECT_EQ(message.text(), QString());
    EXPECT_FALSE(message.textChanged());
    apply(message, R"({"type":"content_block_start","index":1,
        "content_block":{"type":"text","text":"A"}})");
    apply(message, R"({"type":"content_block_delta","index":1,
        "delta":{"type":"text_delta","text":"b"}})");
    EXPECT_TRUE(message.textChanged());
    // A delta whose start was never seen still counts as text.
    apply(message, R"({"type":"content_block_delta","index":3,
        "delta":{"type":"text_delta","text":"c"}})");
    EXPECT_EQ(message.text(), QStringLiteral("Ab\nc"));
    EXPECT_EQ(apply(message, R"({"type":"message_stop"})"), MessageStream::Step::Stopped);

    MessageStream failing;
    EXPECT_EQ(apply(failing, R"({"type":"error","error":{}})"), MessageStream::Step::Failed);
    EXPECT_FALSE(failing.error().isEmpty());
}

} // namespace
