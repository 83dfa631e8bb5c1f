#include "library/index/IndexFile.h"

#include "base/Log.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QJsonDocument>
#include <QJsonObject>
#include <QSaveFile>

namespace qm::library {

namespace {

void setAside(const QString& file, const QString& why) {
    const QString bad = file + QStringLiteral(".bad");
    QFile::remove(bad);
    const bool moved = QFile::rename(file, bad);
    qCWarning(lcOcr).noquote() << QStringLiteral("Quillmark OCR index: %1 %2; %3")
                                      .arg(file, why,
                                           moved ? QStringLiteral("kept as ") + bad
                                                 : QStringLiteral("it could not be set aside"));
}

} // namespace

StoredRecords loadIndexFile(const QString& file) {
    StoredRecords records;
    QFile in(file);
    if (!in.exists())
        return records;
    if (!in.open(QIODevice::ReadOnly)) {
        setAside(file, QStringLiteral("could not be read (%1)").arg(in.errorString()));
        return records;
    }
    QJsonParseError error{};
    const QJsonDocument document = QJsonDocument::fromJson(in.readAll(), &error);
    in.close();
    if (error.error != QJsonParseError::NoError || !document.isObject()) {
        setAside(file, QStringLiteral("is not an index (%1)")
                           .arg(error.error != QJsonParseError::NoError
                                    ? error.errorString()
                                    : QStringLiteral("not a JSON object")));
        return records;
    }
    const QJsonObject root = document.object();
    records.reserve(root.size());
    for (auto it = root.begin(); it != root.end(); ++it) {
        const QJsonObject value = it.value().toObject();
        const QJsonValue modified = value.value(QLatin1String("modified"));
        const QJsonValue text = value.value(QLatin1String("text"));
        // A record of another shape is read again rather than trusted.
        if (!modified.isDouble() || !text.isString())
            continue;
        StoredRecord stored;
        stored.record = OcrRecord{modified.toDouble(), text.toString()};
        stored.size = qint64(value.value(QLatin1String("size")).toDouble(-1));
        records.insert(it.key(), std::move(stored));
    }
    return records;
}

QByteArray encodeIndex(const StoredRecords& records) {
    QJsonObject root;
    for (auto it = records.begin(); it != records.end(); ++it) {
        QJsonObject value{{QStringLiteral("modified"), it->record.modified},
                          {QStringLiteral("text"), it->record.text}};
        if (it->size >= 0)
            value.insert(QStringLiteral("size"), double(it->size));
        root.insert(it.key(), value);
    }
    return QJsonDocument(root).toJson(QJsonDocument::Compact);
}

Status writeIndexFile(const QString& file, const QByteArray& json) {
    const QString folder = QFileInfo(file).absolutePath();
    if (!QDir().mkpath(folder))
        return failure(QStringLiteral("the folder %1 could not be made").arg(folder));
    QSaveFile out(file);
    if (!out.open(QIODevice::WriteOnly) || out.write(json) != json.size() || !out.commit())
        return failure(out.errorString());
    return {};
}

} // namespace qm::library
