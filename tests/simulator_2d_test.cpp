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
#include <random>

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

// An RGB frame whose pixel (x, y) is (x, y, x ^ y), low bytes.
Bytes gradient(uint64_t w, uint64_t h)
{
    Bytes rgb(w * h * 3);
    for (uint64_t y = 0; y < h; ++y)
        for (uint64_t x = 0; x < w; ++x) {
            uint8_t* p = &rgb[(y * w + x) * 3];
            p[0] = x & 0xff;
            p[1] = y & 0xff;
            p[2] = (x ^ y) & 0xff;
        }
    return rgb;
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
    struct Row {
        uint8_t r, g, b, y, u, v;
    } rows[] = { { 0, 0, 0, 16, 128, 128 }, { 255, 255, 255, 235, 128, 128 }, { 255, 0, 0, 82, 90, 240 },
        { 0, 255, 0, 144, 54, 34 }, { 0, 0, 255, 41, 240, 110 } };
    auto camera = makeSimulator(Resolution(2, 1));
    for (const Row& row : rows) {
        Bytes pair = { row.r, row.g, row.b, row.r, row.g, row.b };
        ASSERT_TRUE(camera->putImage(Resolution(2, 1), COLORSPACE_RGB_888, pair.data()));
        EXPECT_EQ(store(*camera), (Bytes { row.y, row.u, row.y, row.v }));
    }
    Bytes redBlue = { 255, 0, 0, 0, 0, 255 };
    ASSERT_TRUE(camera->putImage(Resolution(2, 1), COLORSPACE_RGB_888, redBlue.data()));
    EXPECT_EQ(store(*camera), (Bytes { 82, 165, 41, 175 }));
}

// Expected store for a frame resampled by the mapping from output to source
// positions, pairs averaged.
Bytes expected(const Bytes& rgb, uint64_t w, uint64_t outW, uint64_t outH, std::function<uint64_t(uint64_t)> column,
    std::function<uint64_t(uint64_t)> row)
{
    Bytes out;
    for (uint64_t y = 0; y < outH; ++y)
        for (uint64_t x = 0; x < outW; x += 2) {
            const uint8_t* a = &rgb[(row(y) * w + column(x)) * 3];
            const uint8_t* b = &rgb[(row(y) * w + column(x + 1)) * 3];
            Bytes ya = yuvOf(a[0], a[1], a[2]), yb = yuvOf(b[0], b[1], b[2]);
            out.insert(out.end(),
                { ya[0], static_cast<uint8_t>((ya[1] + yb[1]) >> 1), yb[0],
                    static_cast<uint8_t>((ya[2] + yb[2]) >> 1) });
        }
    return out;
}

TEST(Resampling, FactorsInBothDirections)
{
    struct Row {
        Resolution frame, camera;
        uint64_t factor;
        bool enlarge;
    } rows[] = {
        { { 640, 480 }, { 320, 240 }, 2, false },
        { { 640, 480 }, { 160, 120 }, 4, false },
        { { 320, 240 }, { 40, 30 }, 8, false },
        { { 160, 120 }, { 320, 240 }, 2, true },
        { { 80, 60 }, { 320, 240 }, 4, true },
        { { 40, 30 }, { 320, 240 }, 8, true },
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(std::to_string(row.frame.width) + " to " + std::to_string(row.camera.width));
        auto camera = makeSimulator(row.camera);
        Bytes rgb = gradient(row.frame.width, row.frame.height);
        ASSERT_TRUE(camera->putImage(row.frame, COLORSPACE_RGB_888, rgb.data()));
        const uint64_t f = row.factor;
        auto map = row.enlarge ? std::function<uint64_t(uint64_t)>([f](uint64_t v) { return v / f; })
                               : std::function<uint64_t(uint64_t)>([f](uint64_t v) { return v * f; });
        EXPECT_EQ(store(*camera), expected(rgb, row.frame.width, row.camera.width, row.camera.height, map, map));
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
        Bytes rgb = gradient(row.frame.width, row.frame.height);
        EXPECT_FALSE(camera->putImage(row.frame, COLORSPACE_RGB_888, rgb.data())) << row.frame.width;
    }
    auto camera = makeSimulator(Resolution(320, 240));
    Bytes rgb = gradient(8, 8);
    EXPECT_FALSE(camera->_subSample(16, 8, 8, rgb.data(), rgb.data()));
    EXPECT_FALSE(camera->_overSample(3, 8, 8, rgb.data(), rgb.data()));
}

TEST(Resampling, NonMultipleAndOddSizesStayInsideTheStore)
{
    struct Row {
        Resolution frame, camera;
    } rows[] = {
        { { 321, 241 }, { 160, 120 } }, // truncated factor 2, wider than twice
        { { 640, 480 }, { 300, 240 } }, // factor 2 gives 320 columns for 300
        { { 159, 119 }, { 320, 240 } }, // factor 2 enlarges to less than the camera
        { { 80, 60 }, { 161, 121 } }, // odd camera width: pairs run across rows
        { { 161, 121 }, { 161, 121 } }, // odd pixel count, same size
        { { 322, 242 }, { 161, 121 } },
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(std::to_string(row.frame.width) + " to " + std::to_string(row.camera.width));
        auto camera = makeSimulator(row.camera);
        Bytes rgb = gradient(row.frame.width, row.frame.height);
        EXPECT_TRUE(camera->putImage(row.frame, COLORSPACE_RGB_888, rgb.data()));
        EXPECT_EQ(store(*camera).size(), row.camera.width * row.camera.height * 2);
    }
    // 640x480 into 300x240: the left 300 of the 320 resampled columns.
    auto camera = makeSimulator(Resolution(300, 240));
    Bytes rgb = gradient(640, 480);
    camera->putImage(Resolution(640, 480), COLORSPACE_RGB_888, rgb.data());
    auto twice = [](uint64_t v) { return v * 2; };
    EXPECT_EQ(store(*camera), expected(rgb, 640, 300, 240, twice, twice));
    // 159x119 into 320x240: the last column and row are repeated to the edge.
    camera = makeSimulator(Resolution(320, 240));
    rgb = gradient(159, 119);
    camera->putImage(Resolution(159, 119), COLORSPACE_RGB_888, rgb.data());
    EXPECT_EQ(store(*camera),
        expected(
            rgb, 159, 320, 240, [](uint64_t v) { return std::min<uint64_t>(v / 2, 158); },
            [](uint64_t v) { return std::min<uint64_t>(v / 2, 118); }));
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
    Bytes rgb = gradient(160, 120);
    EXPECT_TRUE(camera->putImage(Resolution(160, 120), COLORSPACE_RGB_888, rgb.data()));
    clock.advanceMs(500);
    store(*camera);
    EXPECT_FALSE(log.has(2, missing));

    EXPECT_FALSE(camera->putImage(Resolution(160, 120), COLORSPACE_BGR_888, rgb.data()));
    EXPECT_TRUE(log.has(2, "putImage(): Colorspace not supported. Please use RGB ColorSpace."));
    EXPECT_FALSE(camera->putImage(Resolution(641, 480), COLORSPACE_RGB_888, rgb.data()));
    EXPECT_TRUE(log.has(2, "putImage(): Unknown resolution from simulator!"));

    // A refused ratio still leaves a fresh stamp over the old pixels.
    const int64_t stamp = StoreReader::read(*camera)->getTimeStamp();
    clock.advanceMs(500);
    Bytes wide = gradient(320, 120);
    EXPECT_FALSE(camera->putImage(Resolution(320, 120), COLORSPACE_RGB_888, wide.data()));
    EXPECT_EQ(StoreReader::read(*camera)->getTimeStamp(), stamp + 1000000); // the clock moved 1 s since

    // A null buffer is refused only after the store took the camera's size.
    camera->setResolution(Resolution(320, 240));
    EXPECT_FALSE(StoreReader::readInto(*camera, boost::shared_ptr<ImageBuffer>()));
    EXPECT_TRUE(log.has(2, "_getDirectRawImage(): error trying to find available buffer."));
    EXPECT_EQ(StoreReader::read(*camera)->getTimeStamp(), 0);
    camera->setResolution(Resolution(160, 120));

    CameraPreferences expectedParameters = camera->getExpectedImageParameters();
    EXPECT_EQ(expectedParameters.getColorSpace(), COLORSPACE_RGB_888);
    EXPECT_EQ(expectedParameters.getResolution(), Resolution(160, 120));
}

TEST(Simulator2DStore, OwnRefusals)
{
    LogCapture log;
    auto camera = makeSimulator(Resolution(160, 120));
    Bytes rgb = gradient(160, 120);
    EXPECT_FALSE(camera->putImage(Resolution(160, 120), COLORSPACE_RGB_888, nullptr));
    EXPECT_TRUE(log.has(2, "putImage(): No pixel data given."));
    EXPECT_FALSE(camera->putImage(Resolution(0, 120), COLORSPACE_RGB_888, rgb.data()));
    EXPECT_TRUE(log.has(2, "putImage(): Empty image size 0x120 for a camera at 160x120."));
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
        try {
            CameraBuilder(bad).getCamera();
            ADD_FAILURE() << model;
        } catch (const Kelmo::KelmoError& e) {
            EXPECT_EQ(e.getModuleName(), "CameraBuilder");
            EXPECT_EQ(e.getMethodName(), "Constructor");
            EXPECT_EQ(e.getDescription(), "Camera not supported");
        }
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
        try {
            CameraBuilder(bad).getCamera();
            ADD_FAILURE() << empty.description;
        } catch (const Kelmo::KelmoError& e) {
            EXPECT_EQ(e.getDescription(), empty.description);
        }
    }
}

// A frame put into a built simulator comes out of its rings converted
// exactly as the routines convert the stored YUV frame.
TEST(Simulator2DEndToEnd, ConvertedImagesMatchTheRoutines)
{
    ManualClock clock;
    auto camera = boost::dynamic_pointer_cast<CameraSimulator2D>(CameraBuilder(info2D()).getCamera());
    auto keep = boost::make_shared<CameraPreferences>(Resolution(640, 480), COLORSPACE_RGB_888, 30);
    ASSERT_TRUE(camera->addPreferences(keep)); // drives the camera to 640x480
    std::mt19937 random(7);
    Bytes rgb(640 * 480 * 3);
    for (auto& b : rgb)
        b = random() & 0xff;
    ASSERT_TRUE(camera->putImage(Resolution(640, 480), COLORSPACE_RGB_888, rgb.data()));

    typedef bool (*Routine)(Camera2D::Buffer, Camera2D::Buffer);
    struct Row {
        ColorSpace space;
        Resolution size;
        Routine routine;
    } rows[] = {
        { COLORSPACE_RGB_888, { 640, 480 }, &Camera2D::convertYUV422toRGB888 },
        { COLORSPACE_Y_8, { 320, 240 }, &Camera2D::convertYUV422toY8 },
        { COLORSPACE_YUV_422, { 160, 120 }, &Camera2D::convertYUV422toYUV422 },
        { COLORSPACE_BGR_888, { 320, 240 }, &Camera2D::convertYUV422toBGR888 },
        { COLORSPACE_HSY_888, { 640, 480 }, &Camera2D::convertYUV422toHSY888 },
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(getColorSpaceName(row.space));
        clock.advanceMs(1000);
        CameraPreferences p(row.size, row.space, 30);
        auto image = camera->getImageBuffer(p);
        ASSERT_TRUE(image);
        EXPECT_EQ(image->getResolution(), row.size);

        auto raw = camera->getDirectRawImageBuffer(p);
        auto reference = boost::make_shared<ImageBuffer>("ref", row.size, row.space, true);
        row.routine(raw, reference);
        camera->releaseImageBuffer(raw);
        ASSERT_EQ(image->getSize(), reference->getSize());
        EXPECT_EQ(0, std::memcmp(image->getData(), reference->getData(), image->getSize()));
        camera->releaseImageBuffer(image);
    }
}

} // namespace
