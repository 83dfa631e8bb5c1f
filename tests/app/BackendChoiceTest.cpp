#include "app/BackendChoice.h"

#include "TestSupport.h"

#include <gtest/gtest.h>

namespace qm::platform {
namespace {

TEST(CaptureBackendChoice, FollowsTheSessionAndTheOverride) {
    const QString x = QStringLiteral(":0");
    auto kind = [](CaptureSession s) { return chooseCaptureBackend(s).kind; };
    EXPECT_EQ(kind({QStringLiteral("x11"), {}, x, {}}), CaptureBackendKind::X11);
    EXPECT_EQ(kind({{}, {}, x, {}}), CaptureBackendKind::X11);
    // XWayland's DISPLAY does not make a Wayland session capturable through X.
    EXPECT_EQ(kind({QStringLiteral("wayland"), QStringLiteral("wayland-0"), x, {}}),
              CaptureBackendKind::Null);
    EXPECT_EQ(kind({{}, QStringLiteral("wayland-0"), x, {}}), CaptureBackendKind::Null);
    EXPECT_EQ(kind({{}, {}, {}, {}}), CaptureBackendKind::Null);
    EXPECT_EQ(kind({QStringLiteral("wayland"), {}, x, QStringLiteral("x11")}),
              CaptureBackendKind::X11);
    EXPECT_EQ(kind({QStringLiteral("x11"), {}, x, QStringLiteral("null")}),
              CaptureBackendKind::Null);
}

TEST(CaptureBackendChoice, NullBackendFailsEveryRequestWithItsReason) {
    // No display here: even a forced X11 backend falls back to one that says why.
    auto backend = createScreenCaptureBackend({{}, {}, {}, QStringLiteral("x11")});
    ASSERT_EQ(backend->name(), QStringLiteral("null"));
    const QString reason = backend->unavailableReason();
    EXPECT_FALSE(reason.isEmpty());
    EXPECT_TRUE(reason.endsWith(QLatin1Char('.')));

    auto wayland = createScreenCaptureBackend({QStringLiteral("wayland"), {}, {}, {}});
    EXPECT_EQ(wayland->unavailableReason(),
              QStringLiteral("Screen capture on Wayland is not supported yet."));

    std::optional<CaptureFailure> failure;
    wayland->grabDisplay(QRect(0, 0, 10, 10),
                         [&](const CaptureResult<QImage>& result) { failure = result.error(); });
    EXPECT_FALSE(failure); // never inside the call
    ASSERT_TRUE(test::waitUntil([&] { return failure.has_value(); }));
    EXPECT_EQ(failure->error, CaptureError::CaptureFailed);
    EXPECT_EQ(failure->reason, wayland->unavailableReason());
    EXPECT_TRUE(wayland->windowList().empty());
}

} // namespace
} // namespace qm::platform
