#pragma once

#include <QImage>
#include <QString>
#include <vector>

namespace qm::bench {

// A screenshot of text and the text it shows, line by line.
struct TextSample {
    QString name;
    QImage image;
    QString truth;
};

// Ordinary screenshots of text, drawn as the screen would draw them (12–16 px, grey-scale
// antialiasing): prose in sans and serif faces, a table, code in a monospace face, and light
// text on a dark theme.
std::vector<TextSample> screenCorpus();

// A full 1920 × 1080 screen of text (prose beside a code pane), different for each `seed`.
TextSample fullScreenOfText(int seed);

// Edit distance over the length of the truth, each with whitespace runs made one space.
double characterErrorRate(const QString& recognised, const QString& truth);

} // namespace qm::bench
