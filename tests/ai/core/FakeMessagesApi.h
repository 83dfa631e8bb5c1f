#pragma once

// A local stand-in for the Messages API: a TCP server that reads each HTTP request and answers
// by hand, so a test can send a reply in pieces, cut it off, or never answer.

#include <QByteArray>
#include <QHostAddress>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QList>
#include <QMap>
#include <QObject>
#include <QPointer>
#include <QTcpServer>
#include <QTcpSocket>
#include <QUrl>
#include <functional>

namespace qm::test {

class FakeMessagesApi : public QObject {
public:
    struct Request {
        QByteArray method;
        QByteArray path;
        QMap<QByteArray, QByteArray> headers; // names in lower case
        QByteArray body;
        QJsonObject json() const { return QJsonDocument::fromJson(body).object(); }
    };

    FakeMessagesApi() {
        m_server.listen(QHostAddress::LocalHost);
        connect(&m_server, &QTcpServer::newConnection, this, [this] {
            while (QTcpSocket* socket = m_server.nextPendingConnection()) {
                ++connections;
                socket->setParent(this);
                connect(socket, &QTcpSocket::readyRead, this, [this, socket] { read(socket); });
            }
        });
    }

    QString base() const {
        return QStringLiteral("http://127.0.0.1:%1").arg(m_server.serverPort());
    }

    // Called once a whole request has arrived; writes nothing by default (a silent server).
    std::function<void(QTcpSocket*)> respond = [](QTcpSocket*) {};
    QList<Request> requests;
    int connections = 0;
    // The socket of the last request, for replies written in steps.
    QPointer<QTcpSocket> last;

    // A whole reply, after which the connection closes.
    static void reply(QTcpSocket* socket, int status, const QByteArray& type,
                      const QByteArray& body) {
        socket->write(head(status, type) + "Content-Length: " + QByteArray::number(body.size()) +
                      "\r\n\r\n");
        socket->write(body);
        socket->disconnectFromHost();
    }
    // The start of a reply whose body runs until the connection closes.
    static QByteArray head(int status, const QByteArray& type) {
        return "HTTP/1.1 " + QByteArray::number(status) + " Status\r\nContent-Type: " + type +
               "\r\nConnection: close\r\n";
    }
    static QByteArray openStream() { return head(200, "text/event-stream") + "\r\n"; }
    // One server-sent event whose type is the JSON object's "type".
    static QByteArray event(const QJsonObject& data) {
        return "event: " + data.value(QStringLiteral("type")).toString().toUtf8() +
               "\ndata: " + QJsonDocument(data).toJson(QJsonDocument::Compact) + "\n\n";
    }
    static QByteArray textStart(int index) {
        return event({{QStringLiteral("type"), QStringLiteral("content_block_start")},
                      {QStringLiteral("index"), index},
                      {QStringLiteral("content_block"),
                       QJsonObject{{QStringLiteral("type"), QStringLiteral("text")},
                                   {QStringLiteral("text"), QString()}}}});
    }
    static QByteArray textDelta(int index, const QString& text) {
        return event({{QStringLiteral("type"), QStringLiteral("content_block_delta")},
                      {QStringLiteral("index"), index},
                      {QStringLiteral("delta"),
                       QJsonObject{{QStringLiteral("type"), QStringLiteral("text_delta")},
                                   {QStringLiteral("text"), text}}}});
    }
    static QByteArray blockStop(int index) {
        return event({{QStringLiteral("type"), QStringLiteral("content_block_stop")},
                      {QStringLiteral("index"), index}});
    }
    static QByteArray toolUse(int index) {
        return event({{QStringLiteral("type"), QStringLiteral("content_block_start")},
                      {QStringLiteral("index"), index},
                      {QStringLiteral("content_block"),
                       QJsonObject{{QStringLiteral("type"), QStringLiteral("tool_use")},
                                   {QStringLiteral("id"), QStringLiteral("toolu_1")},
                                   {QStringLiteral("name"), QStringLiteral("lookup")},
                                   {QStringLiteral("input"), QJsonObject()}}}}) +
               event({{QStringLiteral("type"), QStringLiteral("content_block_delta")},
                      {QStringLiteral("index"), index},
                      {QStringLiteral("delta"),
                       QJsonObject{{QStringLiteral("type"), QStringLiteral("input_json_delta")},
                                   {QStringLiteral("partial_json"), QStringLiteral("{}")}}}}) +
               blockStop(index);
    }
    static QByteArray messageStart() {
        return event({{QStringLiteral("type"), QStringLiteral("message_start")},
                      {QStringLiteral("message"),
                       QJsonObject{{QStringLiteral("id"), QStringLiteral("msg_1")},
                                   {QStringLiteral("content"), QJsonArray()}}}});
    }
    static QByteArray messageStop() {
        return event({{QStringLiteral("type"), QStringLiteral("message_delta")},
                      {QStringLiteral("delta"),
                       QJsonObject{{QStringLiteral("stop_reason"), QStringLiteral("end_turn")}}}}) +
               event({{QStringLiteral("type"), QStringLiteral("message_stop")}});
    }
    // A streamed reply of two text blocks around a tool-use block.
    static QByteArray twoTextBlocks(const QString& first, const QString& second) {
        return openStream() + messageStart() + textStart(0) + textDelta(0, first) + blockStop(0) +
               toolUse(1) + textStart(2) + textDelta(2, second) + blockStop(2) + messageStop();
    }

private:
    void read(QTcpSocket* socket) {
        QByteArray& buffer = m_buffers[socket];
        buffer += socket->readAll();
        const qsizetype end = buffer.indexOf("\r\n\r\n");
        if (end < 0)
            return;
        Request request;
        const QList<QByteArray> lines = buffer.left(end).split('\n');
        const QList<QByteArray> first = lines.first().trimmed().split(' ');
        request.method = first.value(0);
        request.path = first.value(1);
        for (qsizetype i = 1; i < lines.size(); ++i) {
            const qsizetype colon = lines[i].indexOf(':');
            if (colon > 0)
                request.headers.insert(lines[i].left(colon).trimmed().toLower(),
                                       lines[i].mid(colon + 1).trimmed());
        }
        const qsizetype length = request.headers.value("content-length").toLongLong();
        if (buffer.size() < end + 4 + length)
            return;
        request.body = buffer.mid(end + 4, length);
        m_buffers.remove(socket);
        requests.append(request);
        last = socket;
        respond(socket);
    }

    QTcpServer m_server;
    QMap<QTcpSocket*, QByteArray> m_buffers;
};

} // namespace qm::test
