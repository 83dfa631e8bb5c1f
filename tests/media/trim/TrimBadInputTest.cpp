#include "TestSupport.h"
#include "TrimFixtures.h"
#include "media/trim/TrimInPlace.h"

#include <QFile>
#include <QTemporaryDir>
#include <cmath>
#include <functional>
#include <gtest/gtest.h>
#include <limits>

namespace qm::media::trim {
namespace {

// Writes `bytes` as Clip.mov.
bool writeFile(const QString& path, const QByteArray& bytes) {
    QFile file(path);
    return file.open(QIODevice::WriteOnly) && file.write(bytes) == bytes.size();
}

// The start of a fragmented movie whose first fragment never made it to the disk: an index
// that names the tracks but not a single frame.
QByteArray indexWithoutFrames(const QString& scratch) {
    const QString fragmented = scratch + QStringLiteral("/fragmented.mov");
    test::runFfmpeg(QStringLiteral("-f lavfi -i testsrc2=size=320x240:rate=30:duration=1 -c:v "
                                   "libx264 -movflags frag_keyframe+empty_moov -f mov")
                        .split(QLatin1Char(' '))
                    << fragmented);
    const QByteArray bytes = test::fileBytes(fragmented);
    QFile::remove(fragmented);
    // Top-level boxes up to and including moov: each starts with its 32-bit big-endian size.
    qsizetype at = 0;
    while (at + 8 <= bytes.size()) {
        const auto* p = reinterpret_cast<const unsigned char*>(bytes.constData() + at);
        const qsizetype size = (qsizetype(p[0]) << 24) | (p[1] << 16) | (p[2] << 8) | p[3];
        const bool moov = bytes.mid(at + 4, 4) == "moov";
        at += size;
        if (moov || size < 8)
            break;
    }
    return bytes.left(at);
}

struct BadInput {
    const char* name;
    // Puts the movie to trim at the path (or leaves it missing).
    std::function<void(const QString& movie, const QString& scratch)> make;
    double start, end;
    const char* reason;
};

const BadInput kBadInputs[] = {
    {"Missing", [](const QString&, const QString&) {}, 2, 5, "the movie does not exist"},
    {"ZeroBytes", [](const QString& m, const QString&) { writeFile(m, {}); }, 2, 5,
     "the file is empty"},
    {"NotAMovie",
     [](const QString& m, const QString&) {
         writeFile(m, "Quillmark notes\n" + QByteArray(4096, 'x'));
     },
     2, 5, "the file is not a movie"},
    {"CutOffHalfway",
     [](const QString& m, const QString&) {
         const QByteArray whole = test::fileBytes(test::sharedMovie());
         writeFile(m, whole.left(whole.size() * 6 / 10));
     },
     2, 5, "the movie is damaged or cut off"},
    {"CutOffInTheIndex",
     [](const QString& m, const QString&) {
         writeFile(m, test::fileBytes(test::sharedMovie()).left(2000));
     },
     2, 5, "the movie is damaged or cut off"},
    {"SoundOnly",
     [](const QString& m, const QString&) {
         test::runFfmpeg(
             QStringLiteral("-f lavfi -i sine=duration=4 -c:a aac -f mov").split(QLatin1Char(' '))
             << m);
     },
     1, 2, "the movie has no picture"},
    {"UnknownLength",
     [](const QString& m, const QString& scratch) { writeFile(m, indexWithoutFrames(scratch)); },
     0.5, 0.9, "the movie's length is unknown"},
    {"ReadOnly",
     [](const QString& m, const QString&) {
         QFile::copy(test::sharedMovie(), m);
         QFile::setPermissions(m, QFile::ReadOwner | QFile::ReadGroup | QFile::ReadOther);
     },
     2, 5, "the movie is read-only"},
    {"StartsAfterTheEnd", nullptr, 10.5, 11,
     "the trim range starts outside the movie, which lasts 10.00 s"},
    {"StartsBeforeTheBeginning", nullptr, -1, 3,
     "the trim range starts outside the movie, which lasts 10.00 s"},
    {"EndsAfterTheEnd", nullptr, 5, 10.2,
     "the trim range ends after the movie, which lasts 10.00 s"},
    {"JustUnderTheShortest", nullptr, 3.0, 3.19, "the trim range is shorter than 0.20 s"},
    {"Backwards", nullptr, 6, 5, "the trim range is shorter than 0.20 s"},
    {"WholeMovieWithinTolerance", nullptr, 0.04, 9.96, "the trim range keeps the whole movie"},
    {"NotANumber", nullptr, std::numeric_limits<double>::quiet_NaN(), 3,
     "the trim range is not a number"},
};

void PrintTo(const BadInput& input, std::ostream* os) {
    *os << input.name;
}

class TrimBadInputTest : public ::testing::TestWithParam<BadInput> {};

TEST_P(TrimBadInputTest, IsRefusedWithItsReasonAndTheFileUntouched) {
    const BadInput& input = GetParam();
    ASSERT_FALSE(test::sharedMovie().isEmpty()) << "ffmpeg failed";
    QTemporaryDir folder, scratch;
    const QString movie = folder.filePath(QStringLiteral("Clip.mov"));
    if (input.make)
        input.make(movie, scratch.path());
    else
        ASSERT_TRUE(QFile::copy(test::sharedMovie(), movie));
    const QStringList entries = test::folderEntries(folder.path());
    const QByteArray before = test::fileBytes(movie);

    const auto summary = trimInPlace(movie, input.start, input.end);
    ASSERT_FALSE(summary.ok());
    EXPECT_EQ(summary.error().reason, QString::fromUtf8(input.reason));
    EXPECT_EQ(test::fileBytes(movie), before);
    EXPECT_EQ(test::folderEntries(folder.path()), entries);
}

INSTANTIATE_TEST_SUITE_P(Inputs, TrimBadInputTest, ::testing::ValuesIn(kBadInputs),
                         [](const auto& test) { return std::string(test.param.name); });

} // namespace
} // namespace qm::media::trim
