// framehub-demo: one hub, a simulated colour camera and a simulated depth
// camera fed with a moving scene, and clients that each subscribe in their
// own format and rate. Shows progress, a table of what each client got, and
// writes a picture of every client's last image.
#include "render.h"
#include "scene.h"

#include <framehub/camera_builder.h>
#include <framehub/frame_hub.h>
#ifdef FRAMEHUB_DEMO_V4L2
#include <framehub/v4l2.h>
#endif
#include <lumo/log.h>

#include <opencv2/imgcodecs.hpp>
#include <opencv2/imgproc.hpp>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <iostream>
#include <map>
#include <mutex>
#include <sstream>
#include <string>
#include <thread>
#include <unistd.h>
#include <vector>

using namespace Kelmo::FrameHub;
typedef std::chrono::steady_clock Clock;

namespace {

const char* const kUsage
    = "Usage: framehub-demo [--seconds N] [--out DIR] [--input FILE...] [--device PATH] [--list-devices]\n"
      "                     [--gst PIPELINE] [--verbose] [--help]\n"
      "\n"
      "Runs a frame hub with a simulated colour camera and a simulated depth camera,\n"
      "feeds them a moving scene and lets several clients share them, each in its own\n"
      "resolution, colour space and frame rate. Prints progress and a table, and writes\n"
      "one PNG per client plus contact-sheet.png.\n"
      "\n"
      "  --seconds N     how long the clients run (default 8, at most 3600)\n"
      "  --out DIR       where the pictures go (default demo-output)\n"
      "  --input FILE... still images to feed the colour camera instead of the test card\n"
      "  --device PATH   a real camera (V4L2) as the colour camera, /dev/video0 say\n"
      "  --list-devices  the V4L2 capture devices present, with their sizes and rates\n"
      "  --gst PIPELINE  the colour camera is this GStreamer source instead, e.g.\n"
      "                  \"videotestsrc is-live=true pattern=ball\" or\n"
      "                  \"loop=true filesrc location=clip.mp4 ! decodebin\"\n"
      "  --verbose       the library's log at level 5 (verbose)\n"
      "  --help          this text\n";

struct Options {
    double seconds = 8.0;
    std::string out = "demo-output";
    std::vector<std::string> inputs;
    std::string device;
    bool listDevices = false;
    std::string gst;
    bool verbose = false;
};

// Returns 0 to run, 1 after --help, 2 on a bad option (message printed).
int parse(int argc, char** argv, Options& options)
{
    for (int i = 1; i < argc; ++i) {
        const std::string arg = argv[i];
        auto value = [&](const char* what) -> const char* {
            if (i + 1 >= argc || std::string(argv[i + 1]).rfind("--", 0) == 0) {
                std::cerr << "framehub-demo: " << arg << " needs " << what << "\n";
                return nullptr;
            }
            return argv[++i];
        };
        if (arg == "--help" || arg == "-h") {
            std::cout << kUsage;
            return 1;
        } else if (arg == "--verbose") {
            options.verbose = true;
        } else if (arg == "--seconds") {
            const char* v = value("a number of seconds");
            if (!v)
                return 2;
            char* end = nullptr;
            const double s = std::strtod(v, &end);
            if (*end != '\0' || !(s > 0.0) || s > 3600.0) {
                std::cerr << "framehub-demo: --seconds takes a number above 0 and at most 3600, not '" << v << "'\n";
                return 2;
            }
            options.seconds = s;
        } else if (arg == "--out") {
            const char* v = value("a folder");
            if (!v)
                return 2;
            options.out = v;
        } else if (arg == "--device") {
            const char* v = value("a device path");
            if (!v)
                return 2;
            options.device = v;
        } else if (arg == "--list-devices") {
            options.listDevices = true;
        } else if (arg == "--gst") {
            const char* v = value("a pipeline");
            if (!v)
                return 2;
            options.gst = v;
        } else if (arg == "--input") {
            while (i + 1 < argc && std::string(argv[i + 1]).rfind("--", 0) != 0)
                options.inputs.push_back(argv[++i]);
            if (options.inputs.empty()) {
                std::cerr << "framehub-demo: --input needs at least one image file\n";
                return 2;
            }
        } else {
            std::cerr << "framehub-demo: unknown option '" << arg << "'\n"
                      << "Try 'framehub-demo --help'.\n";
            return 2;
        }
    }
    const int colorSources = !options.gst.empty() + !options.inputs.empty() + !options.device.empty();
    if (colorSources > 1) {
        std::cerr << "framehub-demo: --gst, --device and --input each feed the colour camera; give one\n";
        return 2;
    }
    return 0;
}

const float kDegree = 3.14159265f / 180.0f;

// A real camera takes the simulated colour camera's place when one is given;
// a GStreamer pipeline keeps its description and replaces its back-end.
std::vector<CameraInfo> cameras(const CameraInfo* device, const std::string& gst)
{
    CameraInfo color;
    color.name = "color";
    color.model = gst.empty() ? "Simulator2D" : "GStreamer";
    color.backendArgument = gst;
    color.fieldOfView = FieldOfView(60.9f * kDegree, 47.6f * kDegree);
    color.resolutions = { { 160, 120 }, { 320, 240 }, { 640, 480 }, { 1280, 960 } };
    color.colorSpaces = { COLORSPACE_YUV_422 };
    color.frameRates = { 5, 15, 30 };

    CameraInfo depth;
    depth.name = "depth";
    depth.model = "Simulator3D";
    depth.fieldOfView = FieldOfView(58.0f * kDegree, 45.0f * kDegree);
    depth.resolutions = { { 320, 240 }, { 640, 480 } };
    depth.colorSpaces = { COLORSPACE_DEPTH_16 };
    depth.frameRates = { 5, 15, 30 };
    return { device ? *device : color, depth };
}

struct Request {
    std::string camera;
    Resolution size;
    ColorSpace space;
};

struct Client {
    std::string stem;
    std::vector<Request> requests; // two or more: a multi-stream subscriber
    int rate;

    std::string name; // as the hub generated it
    std::atomic<uint64_t> frames { 0 };
    uint64_t cached = 0, wrong = 0;
    std::vector<double> fetchMicroseconds;
    std::mutex snapshotMutex;
    std::vector<render::Snapshot> last;
};

std::vector<Client*> makeClients()
{
    auto one = [](const char* stem, const char* camera, Resolution size, ColorSpace space, int rate) {
        Client* c = new Client;
        c->stem = stem;
        c->requests = { { camera, size, space } };
        c->rate = rate;
        return c;
    };
    std::vector<Client*> clients = {
        one("viewer", "color", { 640, 480 }, COLORSPACE_RGB_888, 30),
        // Same format as the viewer at a lower rate: served the viewer's images.
        one("logger", "color", { 640, 480 }, COLORSPACE_RGB_888, 5),
        one("tracker", "color", { 320, 240 }, COLORSPACE_BGR_888, 30),
        one("edges", "color", { 640, 480 }, COLORSPACE_Y_8, 15),
        one("skin", "color", { 320, 240 }, COLORSPACE_HSY_888, 15),
        one("hues", "color", { 320, 240 }, COLORSPACE_H2RGB_888, 15),
        one("recorder", "color", { 1280, 960 }, COLORSPACE_YUV_422, 5),
        one("obstacles", "depth", { 640, 480 }, COLORSPACE_RGB_888, 30),
        one("cloud", "depth", { 320, 240 }, COLORSPACE_XYZ_323232, 15),
        one("ranges", "depth", { 320, 240 }, COLORSPACE_DISTANCE_32, 15),
        one("infrared", "depth", { 320, 240 }, COLORSPACE_INFRARED_16, 15),
    };
    Client* fusion = new Client;
    fusion->stem = "fusion";
    fusion->requests
        = { { "color", { 320, 240 }, COLORSPACE_RGB_888 }, { "depth", { 320, 240 }, COLORSPACE_DEPTH_16 } };
    fusion->rate = 15;
    clients.push_back(fusion);
    return clients;
}

// Images handed out recently, by buffer and time stamp. A conversion writes
// a new pair; meeting a pair again means the ring served an image that was
// already converted, for this client or another one of the same format.
class RecentImages {
public:
    // True when the pair was seen before; records it otherwise.
    bool seen(const ImageBuffer* buffer, int64_t stamp)
    {
        std::lock_guard<std::mutex> lock(_mutex);
        const std::pair<const ImageBuffer*, int64_t> id(buffer, stamp);
        if (std::find(_ring.begin(), _ring.end(), id) != _ring.end())
            return true;
        _ring[_next++ % _ring.size()] = id;
        return false;
    }

private:
    std::mutex _mutex;
    std::vector<std::pair<const ImageBuffer*, int64_t>> _ring
        = std::vector<std::pair<const ImageBuffer*, int64_t>>(256);
    size_t _next = 0;
};

bool subscribe(FrameHub& hub, Client& c)
{
    if (c.requests.size() == 1) {
        const Request& r = c.requests[0];
        c.name = hub.subscribeCamera(c.stem, r.camera, r.size, r.space, c.rate);
    } else {
        std::vector<std::string> names;
        std::vector<Resolution> sizes;
        std::vector<ColorSpace> spaces;
        for (const Request& r : c.requests) {
            names.push_back(r.camera);
            sizes.push_back(r.size);
            spaces.push_back(r.space);
        }
        c.name = hub.subscribeCameras(c.stem, names, sizes, spaces, c.rate);
    }
    return !c.name.empty();
}

// Fetch, check, keep a copy now and then, release; paced to the client's rate.
void runClient(FrameHub& hub, Client& c, RecentImages& recent, const std::atomic<bool>& stop)
{
    const bool multi = c.requests.size() > 1;
    const auto period = std::chrono::microseconds(1000000 / c.rate);
    auto next = Clock::now();
    auto lastSnapshot = Clock::time_point();
    while (!stop) {
        const auto start = Clock::now();
        std::vector<FrameHub::Buffer> images
            = multi ? hub.getImages(c.name) : std::vector<FrameHub::Buffer> { hub.getImage(c.name) };
        const double micros = std::chrono::duration<double, std::micro>(Clock::now() - start).count();
        bool complete = images.size() == c.requests.size();
        for (size_t i = 0; complete && i < images.size(); ++i)
            complete = static_cast<bool>(images[i]);
        if (complete) {
            c.fetchMicroseconds.push_back(micros);
            ++c.frames;
            bool allCached = true;
            for (size_t i = 0; i < images.size(); ++i) {
                const Request& r = c.requests[i];
                c.wrong += images[i]->getColorSpace() != r.space || images[i]->getResolution() != r.size;
                allCached = recent.seen(images[i].get(), images[i]->getTimeStamp()) && allCached;
            }
            c.cached += allCached;
            if (Clock::now() - lastSnapshot > std::chrono::milliseconds(250) || stop) {
                std::vector<render::Snapshot> copies;
                copies.reserve(images.size());
                for (const auto& image : images)
                    copies.push_back(render::snapshot(*image));
                std::lock_guard<std::mutex> lock(c.snapshotMutex);
                c.last.swap(copies);
                lastSnapshot = Clock::now();
            }
        }
        if (multi)
            hub.releaseImages(c.name);
        else
            hub.releaseImage(c.name);
        next += period;
        const auto now = Clock::now();
        if (next < now)
            next = now; // fell behind: don't try to catch up
        std::this_thread::sleep_until(next);
    }
}

// Puts a frame into every camera at the size each expects, about 30 times a second.
class Feeder {
public:
    Feeder(FrameHub& hub, std::vector<cv::Mat> stills, bool colorIsReal)
        : _hub(hub)
        , _stills(std::move(stills))
        , _colorIsReal(colorIsReal)
    {
    }

    void feedOnce(double t)
    {
        if (!_colorIsReal)
            feedColor(t);
        CameraPreferences expected = _hub.getExpectedImageParameters("depth");
        const Resolution depthSize = expected.getResolution();
        cv::Mat depth, infrared;
        scene::depthScene(static_cast<int>(depthSize.width), static_cast<int>(depthSize.height), t, depth, infrared);
        _hub.putImage("depth", depthSize, COLORSPACE_DEPTH_16, depth.data);
        _hub.putImage("depth", depthSize, COLORSPACE_INFRARED_16, infrared.data);
    }

    void feedColor(double t)
    {
        CameraPreferences expected = _hub.getExpectedImageParameters("color");
        const Resolution size = expected.getResolution();
        const int w = static_cast<int>(size.width), h = static_cast<int>(size.height);
        cv::Mat rgb;
        if (_stills.empty()) {
            rgb = scene::testCard(w, h, t);
        } else {
            const cv::Mat& still = _stills[static_cast<size_t>(t / 2.0) % _stills.size()];
            cv::resize(still, rgb, cv::Size(w, h), 0, 0, cv::INTER_AREA);
        }
        _hub.putImage("color", size, expected.getColorSpace(), rgb.data);
    }

    void run(const std::atomic<bool>& stop, Clock::time_point origin)
    {
        while (!stop) {
            const auto start = Clock::now();
            feedOnce(std::chrono::duration<double>(start - origin).count());
            std::this_thread::sleep_until(start + std::chrono::milliseconds(33));
        }
    }

private:
    FrameHub& _hub;
    std::vector<cv::Mat> _stills;
    bool _colorIsReal;
};

double percentile(std::vector<double> values, double p)
{
    if (values.empty())
        return 0.0;
    std::sort(values.begin(), values.end());
    const size_t index = std::min(values.size() - 1, static_cast<size_t>(std::ceil(p * values.size())) - 1);
    return values[index];
}

std::string sizeText(const Resolution& r) { return std::to_string(r.width) + "x" + std::to_string(r.height); }

std::string shortSpace(ColorSpace space)
{
    const std::string name = getColorSpaceName(space);
    return name.rfind("COLORSPACE_", 0) == 0 ? name.substr(11) : name;
}

void printTable(const std::vector<Client*>& clients, double seconds)
{
    std::printf("\n%-12s %-6s %-9s %-12s %5s %8s %7s %9s %9s %7s\n", "subscriber", "camera", "size", "colorspace",
        "fps", "achieved", "frames", "median us", "p99 us", "cached");
    for (const Client* c : clients) {
        for (size_t i = 0; i < c->requests.size(); ++i) {
            const Request& r = c->requests[i];
            if (i == 0)
                std::printf("%-12s %-6s %-9s %-12s %5d %8.1f %7llu %9.1f %9.1f %7llu\n", c->name.c_str(),
                    r.camera.c_str(), sizeText(r.size).c_str(), shortSpace(r.space).c_str(), c->rate,
                    c->frames / seconds, static_cast<unsigned long long>(c->frames.load()),
                    percentile(c->fetchMicroseconds, 0.5), percentile(c->fetchMicroseconds, 0.99),
                    static_cast<unsigned long long>(c->cached));
            else
                std::printf("%-12s %-6s %-9s %-12s\n", "", r.camera.c_str(), sizeText(r.size).c_str(),
                    shortSpace(r.space).c_str());
        }
    }
}

#ifdef FRAMEHUB_DEMO_V4L2
int listDevices()
{
    const std::vector<V4L2Device> devices = listV4L2Devices();
    if (devices.empty())
        std::printf("No V4L2 capture device found.\n");
    for (const V4L2Device& d : devices) {
        const CameraInfo info = describeV4L2Device(d.path, d.card);
        std::printf("%s  %s\n  sizes:", d.path.c_str(), d.card.c_str());
        for (const Resolution& r : info.resolutions)
            std::printf(" %s", sizeText(r).c_str());
        std::printf("\n  rates:");
        for (int rate : info.frameRates)
            std::printf(" %d", rate);
        std::printf("\n");
    }
    return 0;
}
#endif

} // namespace

int main(int argc, char** argv)
{
    Options options;
    const int parsed = parse(argc, argv, options);
    if (parsed != 0)
        return parsed == 1 ? 0 : 2;

    lumo::log::setLevel(options.verbose ? 5 : 2);
    std::vector<cv::Mat> stills;
    try {
        stills = scene::loadImages(options.inputs);
    } catch (const std::exception& e) {
        std::cerr << "framehub-demo: " << e.what() << "\n";
        return 2;
    }
    std::error_code error;
    std::filesystem::create_directories(options.out, error);
    if (error) {
        std::cerr << "framehub-demo: cannot create '" << options.out << "': " << error.message() << "\n";
        return 2;
    }

    CameraInfo real;
#ifdef FRAMEHUB_DEMO_V4L2
    if (options.listDevices)
        return listDevices();
    if (!options.device.empty()) {
        real = describeV4L2Device(options.device, "color");
        if (real.resolutions.empty()) {
            std::cerr << "framehub-demo: " << options.device << " can't serve as a camera (see the log above)\n";
            return 1;
        }
    }
#else
    if (options.listDevices || !options.device.empty()) {
        std::cerr << "framehub-demo: built without the V4L2 back-end\n";
        return 2;
    }
#endif
    if (!options.gst.empty()) {
        const std::vector<std::string> models = CameraBuilder::models();
        if (std::find(models.begin(), models.end(), "GStreamer") == models.end()) {
            std::cerr << "framehub-demo: this build has no GStreamer back-end\n";
            return 2;
        }
    }
    const bool realColor = !options.device.empty();
    const std::string colorName = realColor ? "color (" + options.device + ")"
        : options.gst.empty()               ? std::string("color (2D)")
                                            : std::string("color (GStreamer)");

    FrameHub hub(cameras(realColor ? &real : nullptr, options.gst));
    std::vector<Client*> clients = makeClients();
    // A webcam may be smaller than the simulated camera: its clients stay within it.
    if (realColor) {
        const Resolution largest = *real.resolutions.rbegin();
        clients.erase(
            std::remove_if(clients.begin(), clients.end(),
                [&](Client* c) {
                    for (const Request& r : c->requests)
                        if (r.camera == "color" && (r.size.width > largest.width || r.size.height > largest.height)) {
                            delete c;
                            return true;
                        }
                    return false;
                }),
            clients.end());
    }
    for (Client* c : clients)
        if (!subscribe(hub, *c)) {
            std::cerr << "framehub-demo: could not subscribe " << c->stem << "\n";
            return 1;
        }
    std::printf("framehub-demo: %zu subscribers on cameras %s, running %.1f s\n", clients.size(),
        (colorName + " and depth (3D)").c_str(), options.seconds);

    Feeder feeder(hub, stills, realColor || !options.gst.empty());
    const auto origin = Clock::now();
    feeder.feedOnce(0.0); // a first frame at the negotiated sizes before anyone reads
    std::atomic<bool> stop { false };
    std::thread feederThread([&] { feeder.run(stop, origin); });
    RecentImages recent;
    std::vector<std::thread> threads;
    threads.reserve(clients.size());
    for (Client* c : clients)
        threads.emplace_back([&, c] { runClient(hub, *c, recent, stop); });

    const bool tty = isatty(fileno(stdout));
    const auto end
        = origin + std::chrono::duration_cast<Clock::duration>(std::chrono::duration<double>(options.seconds));
    for (auto tick = origin + std::chrono::seconds(1); tick < end; tick += std::chrono::seconds(1)) {
        std::this_thread::sleep_until(tick);
        std::ostringstream line;
        line << "[" << std::chrono::duration_cast<std::chrono::seconds>(Clock::now() - origin).count() << " s]";
        for (const Client* c : clients)
            line << " " << c->stem << " " << c->frames;
        std::printf(tty ? "\r%s" : "%s\n", line.str().c_str());
        std::fflush(stdout);
    }
    std::this_thread::sleep_until(end);
    stop = true;
    for (auto& t : threads)
        t.join();
    feederThread.join();
    if (tty)
        std::printf("\n");

    const double seconds = std::chrono::duration<double>(Clock::now() - origin).count();
    printTable(clients, seconds);

    std::vector<cv::Mat> pictures;
    std::vector<std::string> labels;
    int written = 0, failures = 0;
    for (Client* c : clients) {
        std::lock_guard<std::mutex> lock(c->snapshotMutex);
        for (size_t i = 0; i < c->last.size(); ++i) {
            const Request& r = c->requests[i];
            cv::Mat picture = render::toPicture(c->last[i]);
            const std::string file = c->name + (c->requests.size() > 1 ? "-" + r.camera : std::string()) + ".png";
            if (cv::imwrite((std::filesystem::path(options.out) / file).string(), picture))
                ++written;
            else
                ++failures;
            pictures.push_back(picture);
            labels.push_back(c->name + ": " + r.camera + " " + sizeText(r.size) + " " + shortSpace(r.space));
        }
        failures += c->wrong != 0;
    }
    const std::filesystem::path sheet = std::filesystem::path(options.out) / "contact-sheet.png";
    if (!cv::imwrite(sheet.string(), render::contactSheet(pictures, labels)))
        ++failures;
    for (Client* c : clients) {
        hub.unsubscribe(c->name);
        delete c;
    }
    std::printf("\nPictures: %d PNG files and the contact sheet in %s\n", written,
        std::filesystem::absolute(options.out).string().c_str());
    return failures == 0 && written > 0 ? 0 : 1;
}
