#include "TextCorpus.h"

#include <QFont>
#include <QFontMetrics>
#include <QPainter>
#include <QRegularExpression>
#include <QStringList>
#include <algorithm>

namespace qm::bench {

namespace {

const QStringList kProse{
    QStringLiteral("The quarterly report shows revenue up 12% over the same period last year,"),
    QStringLiteral("driven mostly by renewals in the education sector. Support tickets fell"),
    QStringLiteral("to 1,284 after the new onboarding guide went live on March 3rd; the median"),
    QStringLiteral("first reply now takes 41 minutes. Please review the attached invoice"),
    QStringLiteral("(No. 2291, total 148.20 EUR) before Friday and send questions to"),
    QStringLiteral("billing@example.org. Deploy finished in 42 seconds without warnings."),
};

const QStringList kCode{
    QStringLiteral("int main(int argc, char** argv) {"),
    QStringLiteral("    const auto parsed = parseCommandLine(arguments);"),
    QStringLiteral("    if (!parsed.ok()) {"),
    QStringLiteral("        printLine(stderr, parsed.error().reason);"),
    QStringLiteral("        return 1;"),
    QStringLiteral("    }"),
    QStringLiteral("    for (int i = 0; i < 16; ++i)"),
    QStringLiteral("        total += values[i] * 3;"),
    QStringLiteral("    return total > 100 ? 0 : 2;"),
    QStringLiteral("}"),
};

const QList<QStringList> kTable{
    {QStringLiteral("Name"), QStringLiteral("Size"), QStringLiteral("Modified")},
    {QStringLiteral("report-2024.pdf"), QStringLiteral("2.4 MB"), QStringLiteral("Yesterday")},
    {QStringLiteral("Budget draft.xlsx"), QStringLiteral("88 KB"), QStringLiteral("12 May")},
    {QStringLiteral("photo_0193.jpg"), QStringLiteral("5.1 MB"), QStringLiteral("3 June")},
    {QStringLiteral("notes.txt"), QStringLiteral("4 KB"), QStringLiteral("Today")},
    {QStringLiteral("Invoice 2291.pdf"), QStringLiteral("310 KB"), QStringLiteral("Monday")},
};

QFont font(const QString& family, int pixelSize) {
    QFont f(family);
    f.setPixelSize(pixelSize);
    f.setHintingPreference(QFont::PreferFullHinting);
    return f;
}

TextSample lines(const QString& name, const QStringList& text, const QFont& f, QColor ink,
                 QColor paper) {
    const QFontMetrics metrics(f);
    int width = 0;
    for (const QString& line : text)
        width = std::max(width, metrics.horizontalAdvance(line));
    const int step = metrics.lineSpacing() + metrics.height() / 3;
    QImage image(width + 60, step * int(text.size()) + 50, QImage::Format_RGB32);
    image.fill(paper);
    QPainter p(&image);
    p.setFont(f);
    p.setPen(ink);
    int y = 25 + metrics.ascent();
    for (const QString& line : text) {
        p.drawText(30, y, line);
        y += step;
    }
    return {name, image, text.join(QLatin1Char('\n'))};
}

TextSample table(const QFont& f) {
    const QFontMetrics metrics(f);
    const int columns[] = {30, 250, 360};
    const int step = metrics.lineSpacing() + 10;
    QImage image(500, step * int(kTable.size()) + 40, QImage::Format_RGB32);
    image.fill(QColor(255, 255, 255));
    QPainter p(&image);
    p.setFont(f);
    QStringList truth;
    int y = 20;
    for (int row = 0; row < kTable.size(); ++row) {
        if (row % 2 == 1)
            p.fillRect(0, y, image.width(), step, QColor(244, 245, 247));
        p.setPen(row == 0 ? QColor(90, 90, 100) : QColor(30, 30, 35));
        for (int c = 0; c < 3; ++c)
            p.drawText(columns[c], y + (step + metrics.ascent() - metrics.descent()) / 2,
                       kTable[row][c]);
        truth << kTable[row].join(QLatin1Char(' '));
        y += step;
    }
    return {QStringLiteral("table"), image, truth.join(QLatin1Char('\n'))};
}

} // namespace

std::vector<TextSample> screenCorpus() {
    const QColor ink(30, 30, 35);
    const QColor paper(250, 250, 252);
    return {
        lines(QStringLiteral("prose-dejavu-14"), kProse, font(QStringLiteral("DejaVu Sans"), 14),
              ink, paper),
        lines(QStringLiteral("prose-nimbus-13"), kProse, font(QStringLiteral("Nimbus Sans"), 13),
              ink, paper),
        lines(QStringLiteral("prose-serif-16"), kProse, font(QStringLiteral("DejaVu Serif"), 16),
              ink, paper),
        table(font(QStringLiteral("DejaVu Sans"), 12)),
        lines(QStringLiteral("code-mono-13"), kCode, font(QStringLiteral("DejaVu Sans Mono"), 13),
              ink, paper),
        lines(QStringLiteral("dark-nimbus-14"), kProse, font(QStringLiteral("Nimbus Sans"), 14),
              QColor(220, 222, 228), QColor(37, 38, 43)),
    };
}

TextSample fullScreenOfText(int seed) {
    QImage image(1920, 1080, QImage::Format_RGB32);
    image.fill(QColor(250, 250, 252));
    QPainter p(&image);
    QStringList truth;
    // Prose on the left, rotated by the seed so each screen reads differently.
    const QFont sans = font(QStringLiteral("DejaVu Sans"), 14);
    p.setFont(sans);
    p.setPen(QColor(30, 30, 35));
    const int proseStep = QFontMetrics(sans).lineSpacing() + 6;
    int y = 40;
    for (int i = 0; y < 1040; ++i) {
        const QString line = kProse[(i + seed) % kProse.size()];
        p.drawText(40, y, line);
        truth << line;
        y += proseStep;
    }
    // A code pane on the right.
    p.fillRect(1020, 0, 900, 1080, QColor(245, 246, 248));
    const QFont mono = font(QStringLiteral("DejaVu Sans Mono"), 13);
    p.setFont(mono);
    const int codeStep = QFontMetrics(mono).lineSpacing() + 4;
    y = 40;
    for (int i = 0; y < 1040; ++i) {
        const QString line = kCode[(i + seed) % kCode.size()];
        p.drawText(1050, y, line);
        truth << line;
        y += codeStep;
    }
    return {QStringLiteral("screen-%1").arg(seed), image, truth.join(QLatin1Char('\n'))};
}

double characterErrorRate(const QString& recognised, const QString& truth) {
    static const QRegularExpression space(QStringLiteral("\\s+"));
    const QString a = QString(recognised).replace(space, QStringLiteral(" ")).trimmed();
    const QString b = QString(truth).replace(space, QStringLiteral(" ")).trimmed();
    if (b.isEmpty())
        return a.isEmpty() ? 0 : 1;
    std::vector<int> row(size_t(b.size()) + 1);
    for (size_t j = 0; j < row.size(); ++j)
        row[j] = int(j);
    for (qsizetype i = 1; i <= a.size(); ++i) {
        int diagonal = row[0];
        row[0] = int(i);
        for (qsizetype j = 1; j <= b.size(); ++j) {
            const int up = row[size_t(j)];
            row[size_t(j)] = std::min(
                {up + 1, row[size_t(j - 1)] + 1, diagonal + (a[i - 1] == b[j - 1] ? 0 : 1)});
            diagonal = up;
        }
    }
    return double(row.back()) / double(b.size());
}

} // namespace qm::bench
