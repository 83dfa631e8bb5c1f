#include "capture/core/ShareableContentCache.h"

#include "TestSupport.h"

#include <QCoreApplication>
#include <gtest/gtest.h>

namespace qm {
namespace {

using namespace std::chrono_literals;
using platform::ShareableContent;

// Answers content fetches only when the test says so, to count them and to hold one open.
class HeldBackend final : public platform::ScreenCaptureBackend {
public:
    QString name() const override { return QStringLiteral("held"); }
    void fetchContent(platform::BackendCompletion<ShareableContent> done) override {
        ++fetches;
        pending.push_back(std::move(done));
    }
    std::vector<platform::ServerWindow> windowList() override { return {}; }
    void grabDisplay(const QRect&, platform::BackendCompletion<QImage>) override {}
    void grabWindow(std::uint32_t, platform::BackendCompletion<platform::WindowImage>) override {}
    std::optional<std::uint32_t> activeWindow() override { return std::nullopt; }

    // Completes every pending fetch with a display named after the fetch number.
    void answer() {
        auto waiting = std::move(pending);
        pending.clear();
        for (auto& done : waiting)
            done(ShareableContent{{{QStringLiteral("fetch %1").arg(fetches), QRect(0, 0, 8, 8)}},
                                  {}});
    }
    void fail(const QString& reason) {
        auto waiting = std::move(pending);
        pending.clear();
        for (auto& done : waiting)
            done(CaptureFailure{CaptureError::CaptureFailed, reason});
    }

    int fetches = 0;
    std::vector<platform::BackendCompletion<ShareableContent>> pending;
};

class ShareableContentCacheTest : public ::testing::Test {
protected:
    ShareableContentCacheTest()
        : cache(backend, nullptr, [this] { return now; }) {}

    // Asks for content and collects the answer in `answers`.
    void ask(std::chrono::duration<double> maxAge = 5s) {
        cache.current(maxAge, &context, [this](const CaptureResult<ShareableContent>& result) {
            answers.push_back(result);
        });
    }
    static QString name(const CaptureResult<ShareableContent>& result) {
        return result.value().displays.front().name;
    }

    HeldBackend backend;
    std::chrono::steady_clock::time_point now{};
    ShareableContentCache cache;
    QObject context;
    std::vector<CaptureResult<ShareableContent>> answers;
};

TEST_F(ShareableContentCacheTest, ConcurrentCallersShareOneFetch) {
    ask();
    ask();
    EXPECT_EQ(backend.fetches, 1);
    backend.answer();
    ASSERT_EQ(answers.size(), 2u);
    EXPECT_EQ(name(answers[0]), QStringLiteral("fetch 1"));
    EXPECT_EQ(name(answers[1]), QStringLiteral("fetch 1"));
    EXPECT_FALSE(cache.fetching());
}

TEST_F(ShareableContentCacheTest, FreshHitIsServedAtOnceAndRenewedInTheBackground) {
    cache.prewarm();
    backend.answer();
    now += 4s;
    ask();
    EXPECT_EQ(backend.fetches, 2); // the renewal, started by the hit
    ASSERT_TRUE(test::waitUntil([&] { return answers.size() == 1; }));
    EXPECT_EQ(name(answers[0]), QStringLiteral("fetch 1")); // not waiting for the renewal
    backend.answer();
    EXPECT_EQ(name(*cache.cached()), QStringLiteral("fetch 2"));

    // The renewal restarted the clock: 4 s after it the cache is still fresh.
    now += 4s;
    ask();
    ASSERT_TRUE(test::waitUntil([&] { return answers.size() == 2; }));
    EXPECT_EQ(name(answers[1]), QStringLiteral("fetch 2"));
}

TEST_F(ShareableContentCacheTest, StaleContentWaitsForAFreshFetch) {
    cache.prewarm();
    backend.answer();
    now += 5s;
    ask();
    QCoreApplication::processEvents();
    EXPECT_TRUE(answers.empty());
    EXPECT_EQ(backend.fetches, 2);
    backend.answer();
    ASSERT_EQ(answers.size(), 1u);
    EXPECT_EQ(name(answers[0]), QStringLiteral("fetch 2"));
}

TEST_F(ShareableContentCacheTest, FailedFetchReachesEveryWaiterAndKeepsTheOldContent) {
    cache.prewarm();
    backend.answer();
    now += 6s;
    ask();
    ask();
    backend.fail(QStringLiteral("No."));
    ASSERT_EQ(answers.size(), 2u);
    for (const auto& answer : answers)
        EXPECT_EQ(answer.error().reason, QStringLiteral("No."));
    ASSERT_TRUE(cache.cached());
    EXPECT_EQ(name(*cache.cached()), QStringLiteral("fetch 1"));
    // The next caller starts a new fetch rather than joining the failed one.
    ask();
    EXPECT_EQ(backend.fetches, 3);
}

TEST_F(ShareableContentCacheTest, CallerThatWentAwayIsNotCalled) {
    auto gone = std::make_unique<QObject>();
    bool called = false;
    cache.current(5s, gone.get(), [&](const CaptureResult<ShareableContent>&) { called = true; });
    gone.reset();
    backend.answer();
    EXPECT_FALSE(called);
    EXPECT_TRUE(cache.cached());
}

} // namespace
} // namespace qm
