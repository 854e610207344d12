#include "hub_peer.h"
#include "log_capture.h"

#include <framehub/frame_hub.h>

#include <boost/make_shared.hpp>
#include <gtest/gtest.h>

namespace Kelmo {
namespace FrameHub {

namespace {

TEST(FrameHubFrame, NamesFromAStem)
{
    LogCapture log;
    FrameHubPrivateTestPeer peer;
    for (int i = 0; i <= 6; ++i)
        EXPECT_EQ(peer.subscribe("top"), "top_" + std::to_string(i));
    EXPECT_TRUE(log.has(5, "Subscriber name top already in use.\nName id changed to \"top_1\""));
    EXPECT_TRUE(log.has(5, "Subscriber name top already in use.\nName id changed to \"top_6\""));

    log.clear();
    EXPECT_EQ(peer.subscribe("top"), "");
    EXPECT_TRUE(log.has(2,
        "Could not subscribe module: top\n6 instances of: top have already subscribed to the "
        "frame hub.\nPlease unsubscribe before subscribing again to this module."));

    // The lowest free number is reused.
    peer.unsubscribe("top_3");
    EXPECT_EQ(peer.subscribe("top"), "top_3");
    peer.unsubscribe("top_0");
    log.clear();
    EXPECT_EQ(peer.subscribe("top"), "top_0");
    EXPECT_TRUE(log.records().empty()); // first free at _0: no verbose record

    EXPECT_EQ(peer.subscribe("top_0"), "top_0_0");
    EXPECT_EQ(peer.subscribe(""), "_0");
    EXPECT_EQ(peer.hub.getSubscribers(),
        (std::vector<std::string> { "_0", "top_0", "top_0_0", "top_1", "top_2", "top_3", "top_4", "top_5", "top_6" }));
}

TEST(FrameHubFrame, GuardsAndTheirMessages)
{
    LogCapture log;
    FrameHubPrivateTestPeer peer;
    peer.subscribe("mono");
    peer.subscribe("multi");
    peer.record("multi_0").setActiveCameras({ "a", "b" });
    peer.registerCamera("front");

    EXPECT_FALSE(peer.subscriberValid("mono"));
    EXPECT_TRUE(log.has(2, "Subscriber \"mono\" not found. Please verify that you are subscribed to FrameHub."));
    EXPECT_TRUE(peer.subscriberValid("mono_0"));

    EXPECT_TRUE(peer.monostream("mono_0"));
    EXPECT_FALSE(peer.monostream("multi_0"));
    EXPECT_TRUE(log.has(2,
        "Only mono stream subscribers can call this method. Please verify you have subscribed "
        "to FrameHub using subscribeCamera()."));
    EXPECT_TRUE(peer.multistream("multi_0"));
    EXPECT_FALSE(peer.multistream("mono_0"));
    EXPECT_TRUE(log.has(2,
        "Only multi stream subscribers can call this method. Please verify you have subscribed "
        "to FrameHub using subscribeCameras()."));

    EXPECT_TRUE(peer.notProcessing("mono_0"));
    peer.record("mono_0").setImageBuffer(
        "front", boost::make_shared<ImageBuffer>("front", Resolution(1, 1), COLORSPACE_Y_8, true));
    EXPECT_FALSE(peer.notProcessing("mono_0"));

    EXPECT_TRUE(peer.cameraValid("front"));
    EXPECT_FALSE(peer.cameraValid("Default")); // no alias resolution in the guard
    EXPECT_TRUE(log.has(2, "Camera \"Default\" not found. Please verify the camera index."));
    for (const auto& r : log.records())
        EXPECT_EQ(r.category, "vision.framehub");
}

TEST(FrameHubFrame, DefaultAlias)
{
    FrameHubPrivateTestPeer peer;
    EXPECT_EQ(peer.hub.getDefaultActiveCamera(), "");
    EXPECT_EQ(peer.realName("Default"), "");
    EXPECT_EQ(peer.realName("unknown"), "unknown");
    EXPECT_TRUE(peer.hub.getCameraIndexes().empty());

    peer.registerCamera("front");
    peer.registerCamera("back");
    EXPECT_EQ(peer.hub.getDefaultActiveCamera(), "front");
    EXPECT_EQ(peer.realName("Default"), "front");
    EXPECT_EQ(peer.realName("default"), "default"); // the alias is case-sensitive
    EXPECT_EQ(peer.hub.getCameraIndexes(), (std::vector<std::string> { "back", "front" }));
}

TEST(FrameHubFacade, EmptyHub)
{
    FrameHub hub;
    EXPECT_EQ(hub.getDefaultActiveCamera(), "");
    EXPECT_TRUE(hub.getSubscribers().empty() && hub.getCameraIndexes().empty());
    EXPECT_TRUE(hub.isCamera3DPlugged(false) && hub.isCamera3DPlugged(true));
}

} // namespace
} // namespace FrameHub
} // namespace Kelmo
