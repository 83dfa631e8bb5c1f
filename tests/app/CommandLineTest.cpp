#include "app/CommandLine.h"

#include <gtest/gtest.h>

using namespace qm;

namespace {

Command parse(std::initializer_list<const char*> args) {
    QStringList list;
    for (const char* a : args)
        list << QString::fromLatin1(a);
    const Result<Command> parsed = parseCommandLine(list);
    EXPECT_TRUE(parsed) << (parsed ? "" : parsed.error().reason.toStdString());
    return parsed ? *parsed : Command{};
}

TEST(CommandLine, AcceptsTheCaptureVerbs) {
    EXPECT_TRUE(std::holds_alternative<command::Start>(parse({})));
    const auto region = std::get<command::Capture>(parse({"capture", "region"}));
    EXPECT_EQ(region.kind, CaptureKind::Region);
    EXPECT_EQ(region.delaySeconds, 0);
    const auto delayed =
        std::get<command::Capture>(parse({"capture", "fullscreen", "--delay", "3"}));
    EXPECT_EQ(delayed.kind, CaptureKind::Fullscreen);
    EXPECT_EQ(delayed.delaySeconds, 3);
    EXPECT_EQ(std::get<command::Capture>(parse({"capture", "region", "--delay=10"})).delaySeconds,
              10);
    EXPECT_EQ(std::get<command::Record>(parse({"record", "area"})).action, RecordAction::Area);
    EXPECT_EQ(std::get<command::Record>(parse({"record", "screen"})).action, RecordAction::Screen);
    EXPECT_EQ(std::get<command::Record>(parse({"record", "stop"})).action, RecordAction::Stop);

    const auto trim =
        std::get<command::Trim>(parse({"trim", "a b.mov", "--from", "2", "--to=5.5"}));
    EXPECT_EQ(trim.movie, QStringLiteral("a b.mov"));
    EXPECT_EQ(trim.from, 2.0);
    EXPECT_EQ(trim.to, 5.5);
    const auto whole = std::get<command::Gif>(parse({"gif", "m.mov"}));
    EXPECT_FALSE(whole.from || whole.to || whole.fps || whole.maxSize);
    EXPECT_TRUE(whole.output.isEmpty());
    const auto gif = std::get<command::Gif>(
        parse({"gif", "m.mov", "--from", ".5", "--fps", "15", "--max-size", "480", "-o", "x.gif"}));
    EXPECT_EQ(gif.from, 0.5);
    EXPECT_EQ(gif.fps, 15.0);
    EXPECT_EQ(gif.maxSize, 480);
    EXPECT_EQ(gif.output, QStringLiteral("x.gif"));
    EXPECT_TRUE(worksOnFilesAlone(Command{gif}) && worksOnFilesAlone(Command{trim}));
    EXPECT_FALSE(worksOnFilesAlone(parse({"capture", "region"})));
}

TEST(CommandLine, AskTakesAnImageAndAnActionOrAQuestion) {
    const auto action = std::get<command::Ask>(parse({"ask", "a b.png", "--action=extract"}));
    EXPECT_EQ(action.image, QStringLiteral("a b.png"));
    EXPECT_EQ(action.action, QStringLiteral("extract"));
    EXPECT_TRUE(action.question.isEmpty());
    // The words after the image are one question, as typed; "--" lets it start with a dash.
    const auto question = std::get<command::Ask>(parse({"ask", "s.png", "Why", " is this red? "}));
    EXPECT_EQ(question.question, QStringLiteral("Why  is this red?"));
    EXPECT_TRUE(question.action.isEmpty());
    EXPECT_EQ(std::get<command::Ask>(parse({"ask", "s.png", "--", "--verbose?"})).question,
              QStringLiteral("--verbose?"));
    // Needs no display and no running instance.
    EXPECT_TRUE(worksOnFilesAlone(Command{action}));
}

TEST(CommandLine, BadInputIsOneSentence) {
    for (const auto& args : {std::vector<const char*>{"snap"},
                             {"capture"},
                             {"capture", "lasso"},
                             {"capture", "region", "--delay"},
                             {"capture", "region", "--delay", "x"},
                             {"capture", "region", "--delay", "-1"},
                             {"capture", "window", "--delay", "3"},
                             {"capture", "region", "--loud"},
                             {"record"},
                             {"record", "window"},
                             {"record", "area", "--delay", "3"},
                             {"trim"},
                             {"trim", "m.mov", "--from", "2"},
                             {"trim", "m.mov", "--from", "5", "--to", "2"},
                             {"trim", "m.mov", "--from", "2s", "--to", "5"},
                             {"trim", "m.mov", "--from", "1", "--to", "2", "--fps", "12"},
                             {"gif", "m.mov", "--fps", "0"},
                             {"gif", "m.mov", "--max-size", "99999"},
                             {"gif", "m.mov", "-o"},
                             {"ask"},
                             {"ask", "--action", "describe"},
                             {"ask", "shot.png"},
                             {"ask", "shot.png", "   "},
                             {"ask", "shot.png", "--action", "summarise"},
                             {"ask", "shot.png", "--action"},
                             {"ask", "shot.png", "--action", "describe", "Why?"},
                             {"ask", "shot.png", "--model", "x"}}) {
        QStringList list;
        for (const char* a : args)
            list << QString::fromLatin1(a);
        const auto result = parseCommandLine(list);
        ASSERT_FALSE(result) << list.join(u' ').toStdString();
        const QString message = result.error().reason;
        EXPECT_TRUE(message.endsWith(QLatin1Char('.'))) << message.toStdString();
        EXPECT_FALSE(message.contains(QLatin1Char('\n')));
    }
}

} // namespace
