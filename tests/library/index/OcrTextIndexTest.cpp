#include "library/index/OcrTextIndex.h"

#include "IndexTestFiles.h"
#include "TestSupport.h"

#include <QFile>
#include <QImage>
#include <QJsonDocument>
#include <QJsonObject>
#include <QSignalSpy>
#include <QTemporaryDir>
#include <atomic>
#include <condition_variable>
#include <gtest/gtest.h>
#include <mutex>

using namespace qm;
using namespace qm::library;
using namespace qm::test;
using namespace std::chrono_literals;

namespace {

// A recognizer that counts its calls and, while closed, holds them back.
class FakeReader {
public:
    OcrTextIndex::Recognize recognize() {
        return [this](const QImage& image) -> Result<QString> {
            std::unique_lock lock(m_mutex);
            m_cv.wait(lock, [this] { return m_open; });
            ++m_calls;
            return QStringLiteral("Text of a %1 px image").arg(image.width());
        };
    }
    void close() {
        std::lock_guard lock(m_mutex);
        m_open = false;
    }
    void open() {
        {
            std::lock_guard lock(m_mutex);
            m_open = true;
        }
        m_cv.notify_all();
    }
    int calls() const { return m_calls; }

private:
    std::mutex m_mutex;
    std::condition_variable m_cv;
    bool m_open = true;
    std::atomic<int> m_calls = 0;
};

class OcrTextIndexTest : public ::testing::Test {
protected:
    QString capture(const QString& name, int width = 40) {
        const QString path = m_dir.filePath(name);
        QImage image(width, 30, QImage::Format_RGB32);
        image.fill(Qt::white);
        EXPECT_TRUE(image.save(path));
        return path;
    }
    QString indexFile() const {
        return m_dir.filePath(QStringLiteral("data/Quillmark/ocr-index.json"));
    }
    OcrTextIndex::Options options(std::chrono::milliseconds saveDelay = 50ms) {
        OcrTextIndex::Options o;
        o.file = indexFile();
        o.workers = 2;
        o.recognize = m_reader.recognize();
        o.saveDelay = saveDelay;
        return o;
    }
    static bool idle(OcrTextIndex& index) {
        return waitUntil([&] { return !index.isIndexing(); }, 30s);
    }
    QJsonObject onDisk() const {
        QFile file(indexFile());
        if (!file.open(QIODevice::ReadOnly))
            return {};
        return QJsonDocument::fromJson(file.readAll()).object();
    }

    QTemporaryDir m_dir;
    FakeReader m_reader;
};

TEST_F(OcrTextIndexTest, QueuesEachPathOnceAndReadsOnlyWhatChanged) {
    const QString a = capture(QStringLiteral("a.png"), 40);
    const QString b = capture(QStringLiteral("b.png"), 50);
    OcrTextIndex index(options());
    QSignalSpy revisions(&index, &OcrTextIndex::revisionChanged);

    // Asked twice while the first pass is still reading: each image is read once.
    m_reader.close();
    index.index({a, b});
    index.index({b, a});
    EXPECT_TRUE(index.isIndexing());
    EXPECT_EQ(index.remaining(), 2);
    m_reader.open();
    ASSERT_TRUE(idle(index));
    EXPECT_EQ(m_reader.calls(), 2);
    EXPECT_EQ(index.revision(), 2);
    EXPECT_EQ(revisions.count(), 2);
    EXPECT_EQ(index.remaining(), 0);
    ASSERT_TRUE(index.record(b));
    EXPECT_EQ(index.record(b)->text, QStringLiteral("Text of a 50 px image"));
    EXPECT_NEAR(index.record(a)->modified, QFileInfo(a).lastModified().toMSecsSinceEpoch() / 1000.0,
                0.001);

    // Coarse file-system times are not changes; a real rewrite is.
    ASSERT_TRUE(shiftModified(a, 0.8));
    index.index({a, b});
    EXPECT_EQ(index.remaining(), 0);
    ASSERT_TRUE(shiftModified(a, 0.7)); // 1.5 s from when it was read
    index.index({a, b});
    EXPECT_EQ(index.remaining(), 1);
    ASSERT_TRUE(idle(index));
    EXPECT_EQ(m_reader.calls(), 3);

    // Same time, other size: a file rewritten within the second is read again too.
    const QDateTime time = QFileInfo(b).lastModified();
    capture(QStringLiteral("b.png"), 90);
    QFile file(b);
    ASSERT_TRUE(file.open(QIODevice::ReadWrite) &&
                file.setFileTime(time, QFileDevice::FileModificationTime));
    file.close();
    index.index({a, b});
    ASSERT_TRUE(idle(index));
    EXPECT_EQ(m_reader.calls(), 4);
    EXPECT_EQ(index.record(b)->text, QStringLiteral("Text of a 90 px image"));
    EXPECT_TRUE(index.textContains(b, SearchNeedle(QStringLiteral("TEXT OF A 90"))));
    EXPECT_FALSE(index.textContains(b, SearchNeedle(QStringLiteral("50 px"))));
    EXPECT_FALSE(index.textContains(m_dir.filePath(QStringLiteral("none.png")),
                                    SearchNeedle(QStringLiteral("text"))));
}

TEST_F(OcrTextIndexTest, SavesOncePerBurstAndSurvivesARestart) {
    QStringList paths;
    for (int i = 0; i < 10; ++i)
        paths << capture(QStringLiteral("shot %1.png").arg(i), 40 + i);
    {
        OcrTextIndex index(options(1500ms));
        QSignalSpy saved(&index, &OcrTextIndex::saved);
        index.index(paths);
        ASSERT_TRUE(idle(index));
        EXPECT_EQ(index.revision(), 10);
        ASSERT_TRUE(saved.wait(10'000));
        index.flush(); // nothing left to write
        QCoreApplication::processEvents();
        EXPECT_EQ(saved.count(), 1);
        EXPECT_EQ(onDisk().size(), 10);
    }
    // The folder was made on the first save; a new index reads the records back and reads no
    // image again.
    OcrTextIndex again(options());
    ASSERT_TRUE(again.record(paths[3]));
    EXPECT_EQ(again.record(paths[3])->text, QStringLiteral("Text of a 43 px image"));
    again.index(paths);
    EXPECT_EQ(again.remaining(), 0);
    EXPECT_EQ(m_reader.calls(), 10);
}

TEST_F(OcrTextIndexTest, ForgetsDeletedCapturesAndRewritesTheFile) {
    const QString a = capture(QStringLiteral("a.png"));
    const QString b = capture(QStringLiteral("b.png"));
    OcrTextIndex index(options());
    QSignalSpy saved(&index, &OcrTextIndex::saved);
    index.index({a, b});
    ASSERT_TRUE(idle(index));
    ASSERT_TRUE(saved.wait(10'000));
    ASSERT_TRUE(onDisk().contains(a));

    ASSERT_TRUE(QFile::remove(a));
    index.index({b});
    EXPECT_FALSE(index.record(a));
    EXPECT_EQ(index.remaining(), 0);
    ASSERT_TRUE(saved.wait(10'000));
    EXPECT_FALSE(onDisk().contains(a));
    EXPECT_TRUE(onDisk().contains(b));
}

TEST_F(OcrTextIndexTest, ACorruptFileIsSetAsideAndReplacedByTheNextSave) {
    ASSERT_TRUE(QDir().mkpath(QFileInfo(indexFile()).path()));
    ASSERT_TRUE(writeBytes(indexFile(), "{\"/x.png\": {\"modified\": 1, \"te"));
    const QString a = capture(QStringLiteral("a.png"));
    OcrTextIndex index(options());
    EXPECT_FALSE(index.record(QStringLiteral("/x.png")));
    QFile bad(indexFile() + QStringLiteral(".bad"));
    ASSERT_TRUE(bad.open(QIODevice::ReadOnly));
    EXPECT_EQ(bad.readAll(), QByteArray("{\"/x.png\": {\"modified\": 1, \"te"));

    index.index({a});
    ASSERT_TRUE(idle(index));
    index.flush();
    const QJsonObject written = onDisk();
    ASSERT_EQ(written.size(), 1);
    EXPECT_EQ(written.value(a).toObject().value(QStringLiteral("text")).toString(),
              QStringLiteral("Text of a 40 px image"));
}

TEST_F(OcrTextIndexTest, FilesThatAreNotImagesGetEmptyRecordsUntilTheyChange) {
    const QString text = m_dir.filePath(QStringLiteral("notes.png"));
    ASSERT_TRUE(writeBytes(text, "these are notes, not pixels\n"));
    const QString whole = capture(QStringLiteral("whole.png"), 400);
    QFile full(whole);
    ASSERT_TRUE(full.open(QIODevice::ReadOnly));
    const QString cut = m_dir.filePath(QStringLiteral("cut.png"));
    ASSERT_TRUE(writeBytes(cut, full.readAll().left(int(full.size() / 2))));

    OcrTextIndex index(options());
    index.index({text, cut});
    ASSERT_TRUE(idle(index));
    EXPECT_EQ(m_reader.calls(), 0);
    EXPECT_EQ(index.record(text), (OcrRecord{index.record(text)->modified, QString()}));
    ASSERT_TRUE(index.record(cut));
    EXPECT_TRUE(index.record(cut)->text.isEmpty());
    index.index({text, cut});
    EXPECT_EQ(index.remaining(), 0);
}

TEST_F(OcrTextIndexTest, ReadsRealTextWithTesseract) {
    const QString invoice = m_dir.filePath(QStringLiteral("Scan 3.png"));
    const QString other = m_dir.filePath(QStringLiteral("Scan 4.png"));
    ASSERT_TRUE(writeTextImage(
        invoice, {QStringLiteral("INVOICE 2291"), QStringLiteral("Total due: 148.20 EUR")}));
    ASSERT_TRUE(writeTextImage(other, {QStringLiteral("Backup completed without warnings")}));
    OcrTextIndex::Options o = options();
    o.recognize = {}; // the real engine
    OcrTextIndex index(o);
    index.index({invoice, other});
    ASSERT_TRUE(idle(index));
    EXPECT_TRUE(index.unavailableReason().isEmpty());
    EXPECT_EQ(index.record(invoice)->text, QStringLiteral("INVOICE 2291\nTotal due: 148.20 EUR"));
    EXPECT_TRUE(index.textContains(invoice, SearchNeedle(QStringLiteral("invoice"))));
    EXPECT_FALSE(index.textContains(other, SearchNeedle(QStringLiteral("invoice"))));
    EXPECT_TRUE(index.textContains(other, SearchNeedle(QStringLiteral("without warn"))));
}

TEST_F(OcrTextIndexTest, WithoutLanguageDataNothingIsStoredAndTheReasonIsGiven) {
    const QString shot = m_dir.filePath(QStringLiteral("shot.png"));
    ASSERT_TRUE(writeTextImage(shot, {QStringLiteral("Quarterly report")}));
    const QByteArray installed = qgetenv("TESSDATA_PREFIX");
    QTemporaryDir empty;
    qputenv("TESSDATA_PREFIX", empty.path().toLocal8Bit());
    OcrTextIndex::Options o = options();
    o.recognize = {};
    {
        // A new index has worker threads of its own, so their engines start afresh.
        OcrTextIndex index(o);
        QSignalSpy reasons(&index, &OcrTextIndex::unavailableReasonChanged);
        index.index({shot});
        ASSERT_TRUE(idle(index));
        EXPECT_FALSE(index.record(shot));
        EXPECT_EQ(index.revision(), 0);
        EXPECT_TRUE(index.unavailableReason().startsWith(
            QStringLiteral("Text search is unavailable: the English language data")));
        EXPECT_TRUE(index.unavailableReason().contains(empty.path()));
        EXPECT_EQ(reasons.count(), 1);
        // Not stored, so asked again it tries again.
        index.index({shot});
        EXPECT_EQ(index.remaining(), 1);
        ASSERT_TRUE(idle(index));
    }
    if (installed.isEmpty())
        qunsetenv("TESSDATA_PREFIX");
    else
        qputenv("TESSDATA_PREFIX", installed);
}

} // namespace
