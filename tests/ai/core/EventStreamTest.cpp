// Server-sent events cut at any byte.
#include "ai/core/EventStream.h"

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

} // namespace
