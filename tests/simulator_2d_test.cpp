#include "fake_camera.h"
#include "hub_fixture.h"
#include "log_capture.h"

#include "camera/camera_registry.h"
#include "simulator/camera_simulator_2d.h"
#include "simulator/camera_simulator_3d.h"

#include <framehub/camera_builder.h>
#include <kelmoerror/kelmo_error.h>

#include <boost/make_shared.hpp>
#include <boost/pointer_cast.hpp>
#include <gtest/gtest.h>

#include <algorithm>

using namespace Kelmo::FrameHub;

namespace {

typedef std::vector<uint8_t> Bytes;

CameraInfo info2D(const std::string& name = "front")
{
    return simulatorInfo(name, "Simulator2D", { { 40, 30 }, { 160, 120 }, { 320, 240 }, { 640, 480 } },
        { COLORSPACE_YUV_422, COLORSPACE_RGB_888 }, { 10, 15, 30 });
}

boost::shared_ptr<CameraSimulator2D> makeSimulator(const Resolution& size)
{
    auto camera = boost::dynamic_pointer_cast<CameraSimulator2D>(CameraBuilder(info2D()).getCamera());
    camera->setResolution(size);
    return camera;
}

// Reads the store the way the rings do, without the rings' freshness rule.
struct StoreReader : CameraSimulator2D {
    static bool readInto(CameraSimulator2D& camera, boost::shared_ptr<ImageBuffer> buffer)
    {
        bool (CameraSimulator2D::*hook)(boost::shared_ptr<ImageBuffer>) = &StoreReader::_getDirectRawImage;
        return (camera.*hook)(buffer);
    }
    static boost::shared_ptr<ImageBuffer> read(CameraSimulator2D& camera)
    {
        auto buffer = boost::make_shared<ImageBuffer>("copy", Resolution(1, 1), COLORSPACE_YUV_422, true);
        EXPECT_TRUE(readInto(camera, buffer));
        return buffer;
    }
};

Bytes store(CameraSimulator2D& camera)
{
    auto copy = StoreReader::read(camera);
    return Bytes(copy->getData(), copy->getData() + copy->getSize());
}

// Y, U, V of one RGB pixel by the integer coefficients.
Bytes yuvOf(int r, int g, int b)
{
    return { static_cast<uint8_t>(((66 * r + 129 * g + 25 * b + 128) >> 8) + 16),
        static_cast<uint8_t>(((-38 * r - 74 * g + 112 * b + 128) >> 8) - 128),
        static_cast<uint8_t>(((112 * r - 94 * g - 18 * b + 128) >> 8) - 128) };
}

TEST(Resampling, SampleColoursAndPairRule)
{
    const struct {
        Bytes pair, store; // two RGB pixels, one macro-pixel
    } rows[] = { { { 0, 0, 0, 0, 0, 0 }, { 16, 128, 16, 128 } }, { Bytes(6, 255), { 235, 128, 235, 128 } },
        { { 255, 0, 0, 255, 0, 0 }, { 82, 90, 82, 240 } }, { { 0, 255, 0, 0, 255, 0 }, { 144, 54, 144, 34 } },
        { { 0, 0, 255, 0, 0, 255 }, { 41, 240, 41, 110 } }, { { 255, 0, 0, 0, 0, 255 }, { 82, 165, 41, 175 } } };
    auto camera = makeSimulator(Resolution(2, 1));
    for (const auto& row : rows) {
        ASSERT_TRUE(camera->putImage(Resolution(2, 1), COLORSPACE_RGB_888, row.pair.data()));
        EXPECT_EQ(store(*camera), row.store);
    }
}

// Expected store: each pixel read from where its position maps in the frame
// (a whole factor per axis, clamped to the last column and row), pairs
// sharing their averaged chroma.
Bytes expected(const Bytes& rgb, const Resolution& frame, const Resolution& camera)
{
    const auto at = [](uint64_t v, uint64_t in, uint64_t out) {
        return in >= out ? v * (in / out) : std::min(v / (out / in), in - 1);
    };
    Bytes out;
    for (uint64_t y = 0; y < camera.height; ++y)
        for (uint64_t x = 0; x < camera.width; x += 2) {
            const uint64_t row = at(y, frame.height, camera.height) * frame.width;
            const uint8_t* a = &rgb[(row + at(x, frame.width, camera.width)) * 3];
            const uint8_t* b = &rgb[(row + at(x + 1, frame.width, camera.width)) * 3];
            Bytes ya = yuvOf(a[0], a[1], a[2]), yb = yuvOf(b[0], b[1], b[2]);
            out.insert(out.end(),
                { ya[0], static_cast<uint8_t>((ya[1] + yb[1]) >> 1), yb[0],
                    static_cast<uint8_t>((ya[2] + yb[2]) >> 1) });
        }
    return out;
}

TEST(Resampling, FactorsInBothDirectionsStayInsideTheStore)
{
    struct Row {
        Resolution frame, camera;
        bool exact; // odd camera widths pair pixels across rows: size only
    } rows[] = {
        { { 640, 480 }, { 320, 240 }, true },
        { { 640, 480 }, { 160, 120 }, true },
        { { 320, 240 }, { 40, 30 }, true },
        { { 160, 120 }, { 320, 240 }, true },
        { { 80, 60 }, { 320, 240 }, true },
        { { 40, 30 }, { 320, 240 }, true },
        { { 640, 480 }, { 300, 240 }, true }, // factor 2 gives 320 columns for 300
        { { 159, 119 }, { 320, 240 }, true }, // last column and row repeated to the edge
        { { 321, 241 }, { 160, 120 }, false }, // truncated factor 2, wider than twice
        { { 80, 60 }, { 161, 121 }, false },
        { { 161, 121 }, { 161, 121 }, false }, // odd pixel count, same size
        { { 322, 242 }, { 161, 121 }, false },
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(std::to_string(row.frame.width) + " to " + std::to_string(row.camera.width));
        auto camera = makeSimulator(row.camera);
        const Bytes rgb = rgbFrame(row.frame.width, row.frame.height, 0);
        ASSERT_TRUE(camera->putImage(row.frame, COLORSPACE_RGB_888, rgb.data()));
        const Bytes stored = store(*camera);
        EXPECT_EQ(stored.size(), row.camera.width * row.camera.height * 2);
        if (row.exact) {
            EXPECT_EQ(stored, expected(rgb, row.frame, row.camera));
        }
    }
}

TEST(Resampling, RefusedFactorsAndRatios)
{
    struct Row {
        Resolution frame, camera;
    } rows[] = {
        { { 640, 480 }, { 40, 30 } }, // factor 16
        { { 480, 360 }, { 160, 120 } }, // factor 3
        { { 480, 360 }, { 320, 240 } }, // factor 1, different sizes
        { { 640, 240 }, { 320, 240 } }, // fx 2, fy 1
        { { 320, 120 }, { 320, 240 } }, // same width, other height
    };
    for (const Row& row : rows) {
        auto camera = makeSimulator(row.camera);
        const Bytes rgb = rgbFrame(row.frame.width, row.frame.height, 0);
        EXPECT_FALSE(camera->putImage(row.frame, COLORSPACE_RGB_888, rgb.data())) << row.frame.width;
    }
    auto camera = makeSimulator(Resolution(320, 240));
    Bytes rgb = rgbFrame(8, 8, 0);
    EXPECT_FALSE(camera->_subSample(16, 8, 8, rgb.data(), rgb.data()));
    EXPECT_FALSE(camera->_overSample(3, 8, 8, rgb.data(), rgb.data()));
}

TEST(Simulator2DStore, StatesAndMessages)
{
    ManualClock clock;
    LogCapture log;
    auto camera = makeSimulator(Resolution(160, 120));
    const std::string missing = "_getDirectRawImageBuffer(): Could not get image for subscriber.\nPlease check that "
                                "the simulator is running.";
    Bytes first = store(*camera);
    EXPECT_EQ(first, Bytes(160 * 120 * 2, 0));
    EXPECT_TRUE(log.has(2, missing));
    log.clear();
    clock.advanceMs(500);
    store(*camera);
    EXPECT_TRUE(log.records().empty()); // once per change

    camera->setResolution(Resolution(320, 240));
    clock.advanceMs(500);
    EXPECT_EQ(store(*camera).size(), 320u * 240 * 2);
    EXPECT_TRUE(log.has(2, missing));

    // A put arriving first simply takes the new size.
    log.clear();
    camera->setResolution(Resolution(160, 120));
    const Bytes rgb = rgbFrame(160, 120, 0);
    EXPECT_TRUE(camera->putImage(Resolution(160, 120), COLORSPACE_RGB_888, rgb.data()));
    clock.advanceMs(500);
    store(*camera);
    EXPECT_FALSE(log.has(2, missing));

    const struct {
        Resolution size;
        ColorSpace space;
        const uint8_t* data;
        const char* message;
    } refusals[] = {
        { { 160, 120 }, COLORSPACE_BGR_888, rgb.data(), "Colorspace not supported. Please use RGB ColorSpace." },
        { { 641, 480 }, COLORSPACE_RGB_888, rgb.data(), "Unknown resolution from simulator!" },
        { { 160, 120 }, COLORSPACE_RGB_888, nullptr, "No pixel data given." },
        { { 0, 120 }, COLORSPACE_RGB_888, rgb.data(), "Empty image size 0x120 for a camera at 160x120." },
    };
    for (const auto& r : refusals) {
        EXPECT_FALSE(camera->putImage(r.size, r.space, r.data)) << r.message;
        EXPECT_TRUE(log.has(2, std::string("putImage(): ") + r.message)) << r.message;
    }

    // A refused ratio still leaves a fresh stamp over the old pixels.
    const int64_t stamp = StoreReader::read(*camera)->getTimeStamp();
    clock.advanceMs(500);
    const Bytes wide = rgbFrame(320, 120, 0);
    EXPECT_FALSE(camera->putImage(Resolution(320, 120), COLORSPACE_RGB_888, wide.data()));
    EXPECT_EQ(StoreReader::read(*camera)->getTimeStamp(), stamp + 1000000); // the clock moved 1 s since

    // A null buffer is refused only after the store took the camera's size.
    camera->setResolution(Resolution(320, 240));
    EXPECT_FALSE(StoreReader::readInto(*camera, boost::shared_ptr<ImageBuffer>()));
    EXPECT_TRUE(log.has(2, "_getDirectRawImage(): error trying to find available buffer."));
    EXPECT_EQ(StoreReader::read(*camera)->getTimeStamp(), 0);

    camera->setResolution(Resolution(160, 120));
    const CameraPreferences expectedParameters = camera->getExpectedImageParameters();
    EXPECT_EQ(expectedParameters.getColorSpace(), COLORSPACE_RGB_888);
    EXPECT_EQ(expectedParameters.getResolution(), Resolution(160, 120));
    camera->setResolution(Resolution(160, 0));
    EXPECT_FALSE(camera->putImage(Resolution(160, 120), COLORSPACE_RGB_888, rgb.data()));
}

TEST(SimulatorBase, DeviceSettings)
{
    LogCapture log;
    auto camera = makeSimulator(Resolution(160, 120));
    struct Row {
        int asked, stored;
        const char* message;
    } rows[] = { { 1, 10, "setFrameRate(): Frame Rate requested too low.\nAutomaticaly set to 5." },
        { 60, 30, "setFrameRate(): Frame Rate requested too high.\nAutomaticaly set to 30." }, { 12, 12, nullptr } };
    for (const Row& row : rows) {
        log.clear();
        EXPECT_TRUE(camera->setFrameRate(row.asked));
        EXPECT_EQ(camera->getFrameRate(), row.stored);
        if (row.message) {
            EXPECT_TRUE(log.has(3, row.message));
        }
    }
    EXPECT_FALSE(camera->setColorSpace(COLORSPACE_YUV_422));
    EXPECT_TRUE(log.has(2, "setColorSpace(0): Operation not supported on this camera."));
    EXPECT_TRUE(camera->setResolution(Resolution(1000, 1000))); // no check at this level
    EXPECT_EQ(camera->getResolution(), Resolution(1000, 1000));
    EXPECT_TRUE(camera->isStarted()); // restarted around the change
}

// "module/method: description" of what building throws, empty if it builds.
std::string thrown(const CameraInfo& info)
{
    try {
        CameraBuilder(info).getCamera();
    } catch (const Kelmo::KelmoError& e) {
        return e.getModuleName() + "/" + e.getMethodName() + ": " + e.getDescription();
    }
    return "";
}

TEST(Builder, ModelsDefaultsAndRefusals)
{
    LogCapture log;
    CameraInfo info = info2D("left");
    info.fieldOfView = FieldOfView(0, 0);
    info.horizontalFlip = true;
    CameraBuilder builder(info);
    auto camera = builder.getCamera();
    EXPECT_TRUE(log.has(2, "Invalid Field Of View to set"));
    EXPECT_EQ(camera->getName(), "left");
    EXPECT_EQ(camera->getModel(), "Simulator2D");
    EXPECT_EQ(camera->getResolution(), Resolution(40, 30));
    EXPECT_EQ(camera->getColorSpace(), COLORSPACE_YUV_422);
    EXPECT_EQ(camera->getFrameRate(), 10);
    EXPECT_EQ(camera->getDefaultFlip(), std::make_pair(true, false));
    EXPECT_FALSE(camera->isOpen());
    EXPECT_NE(builder.getCamera(), camera);

    // Back-ends register themselves; the list is sorted and a model is taken once.
    const std::vector<std::string> models = CameraBuilder::models();
    EXPECT_TRUE(std::is_sorted(models.begin(), models.end()));
    for (const char* model : { "Simulator2D", "Simulator3D" })
        EXPECT_EQ(std::count(models.begin(), models.end(), model), 1) << model;
    EXPECT_FALSE(registerCameraModel("Simulator2D", &makeCamera<CameraSimulator3D>));
    EXPECT_EQ(CameraBuilder(info2D()).getCamera()->getModel(), "Simulator2D");

    for (const char* model : { "simulator2D", "", "simulator3D" }) {
        CameraInfo bad = info2D();
        bad.model = model;
        EXPECT_EQ(thrown(bad), "CameraBuilder/Constructor: Camera not supported") << model;
        EXPECT_TRUE(log.has(2, std::string("Can't create camera backend,  model \"") + model + "\" unsupported."));
    }

    struct Empty {
        void (*clear)(CameraInfo&);
        const char* description;
    } empties[] = {
        { [](CameraInfo& i) { i.resolutions.clear(); }, "Empty set of resolutions in the camera description" },
        { [](CameraInfo& i) { i.colorSpaces.clear(); }, "Empty set of color spaces in the camera description" },
        { [](CameraInfo& i) { i.frameRates.clear(); }, "Empty set of frame rates in the camera description" },
        { [](CameraInfo& i) { i.resolutions.insert(Resolution(1u << 20, 480)); },
            "Resolution 1048576x480 out of 1 to 16384 in the camera description" },
        { [](CameraInfo& i) { i.resolutions.insert(Resolution(640, 0)); },
            "Resolution 640x0 out of 1 to 16384 in the camera description" },
    };
    for (const Empty& empty : empties) {
        CameraInfo bad = info2D();
        empty.clear(bad);
        EXPECT_EQ(thrown(bad), std::string("CameraBuilder/getCamera: ") + empty.description);
    }
}

} // namespace
