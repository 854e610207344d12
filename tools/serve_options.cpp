#include "serve_options.h"

#include <algorithm>
#include <cctype>
#include <cerrno>
#include <climits>
#include <cstdlib>
#include <fstream>
#include <set>
#include <sstream>

using namespace Kelmo::FrameHub;

namespace serve {

const char* const kUsage = "Usage: framehub-serve --camera NAME=MODEL[:ARGUMENT] ... --stream "
                           "PATH=CAMERA:WIDTHxHEIGHT@RATE[:COLORSPACE] ...\n"
                           "                      [--codec h264|mjpeg] [--port N] [--bind ADDRESS]\n"
                           "                      [--user NAME --password-file FILE] [--verbose] [--help]\n"
                           "\n"
                           "Builds a frame hub from the cameras described and serves streams of it over RTSP,\n"
                           "each one a subscriber of the hub that fetches images only while a client watches.\n"
                           "\n"
                           "  --camera NAME=MODEL[:ARGUMENT]\n"
                           "                  a camera of any model this build knows (see below); the\n"
                           "                  simulators are fed a moving test card or depth scene\n"
                           "  --sizes WxH,...  native sizes of the next --camera (default 160x120,320x240,\n"
                           "                  640x480,1280x960)\n"
                           "  --rates N,...    native frame rates of the next --camera (default 5,15,30)\n"
                           "  --stream PATH=CAMERA:WIDTHxHEIGHT@RATE[:COLORSPACE]\n"
                           "                  mounts rtsp://ADDRESS:PORT/PATH; COLORSPACE is a name such as\n"
                           "                  RGB_888 or Y_8 (default RGB_888, DEPTH_16 for depth cameras,\n"
                           "                  which are served in false colour)\n"
                           "  --codec C       h264 (x264enc or openh264enc) or mjpeg (jpegenc); by default\n"
                           "                  H.264 when an encoder is installed, Motion-JPEG otherwise\n"
                           "  --port N        TCP port of the server (default 8554)\n"
                           "  --bind ADDRESS  address to listen on (default 127.0.0.1, this machine only;\n"
                           "                  0.0.0.0 serves every interface)\n"
                           "  --user NAME --password-file FILE\n"
                           "                  basic authentication on every stream; the password is the\n"
                           "                  file's first line\n"
                           "  --time-code     stamp the feed time into the simulated pictures' top rows\n"
                           "                  (for latency measurements)\n"
                           "  --verbose       the library's log at level 5 (verbose)\n"
                           "  --help          this text\n"
                           "\n"
                           "Cameras whose model ends in 3D are depth cameras. Stops on SIGINT or SIGTERM.\n"
                           "Example:\n"
                           "  framehub-serve --camera front=Simulator2D --stream front=front:640x480@30\n";

namespace {

std::vector<std::string> split(const std::string& text, char separator)
{
    std::vector<std::string> parts;
    std::string part;
    std::istringstream in(text);
    while (std::getline(in, part, separator))
        parts.push_back(part);
    if (!text.empty() && text.back() == separator)
        parts.push_back(std::string());
    return parts;
}

// A whole decimal number in [low, high].
bool parseInt(const std::string& text, long low, long high, long& value)
{
    if (text.empty() || !std::isdigit(static_cast<unsigned char>(text[0])))
        return false;
    errno = 0;
    char* end = nullptr;
    value = std::strtol(text.c_str(), &end, 10);
    return errno == 0 && *end == '\0' && value >= low && value <= high;
}

// WIDTHxHEIGHT, each in [1, 8192].
bool parseSize(const std::string& text, Resolution& size)
{
    const size_t x = text.find('x');
    long w = 0, h = 0;
    if (x == std::string::npos || !parseInt(text.substr(0, x), 1, 8192, w) || !parseInt(text.substr(x + 1), 1, 8192, h))
        return false;
    size = Resolution(static_cast<uint64_t>(w), static_cast<uint64_t>(h));
    return true;
}

bool validPath(const std::string& path)
{
    if (path.empty() || path.front() == '/' || path.back() == '/' || path.find("//") != std::string::npos)
        return false;
    return std::all_of(path.begin(), path.end(), [](char c) {
        return std::isalnum(static_cast<unsigned char>(c)) || c == '_' || c == '-' || c == '.' || c == '/';
    });
}

std::string join(const std::vector<std::string>& items)
{
    std::string text;
    for (const std::string& item : items)
        text += (text.empty() ? "" : ", ") + item;
    return text;
}

const float kDegree = 3.14159265f / 180.0f;

} // namespace

bool isDepthModel(const std::string& model)
{
    return model.size() >= 2 && model.compare(model.size() - 2, 2, "3D") == 0;
}

ColorSpace parseColorSpace(const std::string& text)
{
    std::string upper = text;
    std::transform(upper.begin(), upper.end(), upper.begin(), [](unsigned char c) { return std::toupper(c); });
    if (upper.rfind("COLORSPACE_", 0) != 0)
        upper = "COLORSPACE_" + upper;
    for (int i = 0; i < COLORSPACE_UNKNOWN; ++i)
        if (getColorSpaceName(static_cast<ColorSpace>(i)) == upper)
            return static_cast<ColorSpace>(i);
    return COLORSPACE_UNKNOWN;
}

int parse(int argc, char** argv, Options& options, std::ostream& out, std::ostream& err)
{
    std::set<Resolution> sizes;
    std::set<int> rates;
    std::string pendingSizes, pendingRates; // the option that set them, until a --camera takes them
    std::string passwordFile;
    const std::vector<std::string> models = CameraBuilder::models();

    auto fail = [&](const std::string& message) {
        err << "framehub-serve: " << message << "\n";
        return 2;
    };
    for (int i = 1; i < argc; ++i) {
        const std::string arg = argv[i];
        std::string v;
        auto value = [&]() {
            if (i + 1 >= argc)
                return false;
            v = argv[++i];
            return true;
        };
        if (arg == "--help" || arg == "-h") {
            out << kUsage << "\nModels of this build: " << join(models) << "\n";
            return 1;
        } else if (arg == "--verbose") {
            options.verbose = true;
        } else if (arg == "--time-code") {
            options.timeCode = true;
        } else if (arg == "--camera") {
            if (!value())
                return fail("--camera needs NAME=MODEL[:ARGUMENT]");
            const size_t eq = v.find('=');
            if (eq == std::string::npos || eq == 0 || eq + 1 == v.size())
                return fail("--camera takes NAME=MODEL[:ARGUMENT], not '" + v + "'");
            CameraInfo info;
            info.name = v.substr(0, eq);
            const size_t colon = v.find(':', eq);
            info.model = v.substr(eq + 1, colon == std::string::npos ? std::string::npos : colon - eq - 1);
            if (colon != std::string::npos)
                info.backendArgument = v.substr(colon + 1);
            if (info.name == "Default")
                return fail("'Default' is the hub's alias and can't name a camera");
            for (const CameraInfo& other : options.cameras)
                if (other.name == info.name)
                    return fail("camera '" + info.name + "' is described twice");
            if (std::find(models.begin(), models.end(), info.model) == models.end())
                return fail("unknown camera model '" + info.model + "' (this build knows " + join(models) + ")");
            const bool depth = isDepthModel(info.model);
            info.fieldOfView
                = depth ? FieldOfView(58.0f * kDegree, 45.0f * kDegree) : FieldOfView(60.9f * kDegree, 47.6f * kDegree);
            info.resolutions = sizes.empty()
                ? std::set<Resolution> { { 160, 120 }, { 320, 240 }, { 640, 480 }, { 1280, 960 } }
                : sizes;
            info.frameRates = rates.empty() ? std::set<int> { 5, 15, 30 } : rates;
            info.colorSpaces = { depth ? COLORSPACE_DEPTH_16 : COLORSPACE_YUV_422 };
            options.cameras.push_back(info);
            sizes.clear();
            rates.clear();
            pendingSizes.clear();
            pendingRates.clear();
        } else if (arg == "--sizes") {
            if (!value())
                return fail("--sizes needs WIDTHxHEIGHT,...");
            sizes.clear();
            for (const std::string& item : split(v, ',')) {
                Resolution size;
                if (!parseSize(item, size))
                    return fail("--sizes takes WIDTHxHEIGHT,... (1 to 8192 each), not '" + v + "'");
                sizes.insert(size);
            }
            pendingSizes = arg;
        } else if (arg == "--rates") {
            if (!value())
                return fail("--rates needs N,...");
            rates.clear();
            for (const std::string& item : split(v, ',')) {
                long rate = 0;
                if (!parseInt(item, 1, 240, rate))
                    return fail("--rates takes frame rates from 1 to 240, not '" + v + "'");
                rates.insert(static_cast<int>(rate));
            }
            pendingRates = arg;
        } else if (arg == "--stream") {
            if (!value())
                return fail("--stream needs PATH=CAMERA:WIDTHxHEIGHT@RATE[:COLORSPACE]");
            const std::string form = "--stream takes PATH=CAMERA:WIDTHxHEIGHT@RATE[:COLORSPACE], not '" + v + "'";
            const size_t eq = v.find('=');
            if (eq == std::string::npos)
                return fail(form);
            StreamOption s;
            s.path = v.substr(0, eq);
            const std::vector<std::string> fields = split(v.substr(eq + 1), ':');
            if (!validPath(s.path))
                return fail("stream path '" + s.path + "' must be letters, digits, '_', '-', '.' and inner '/'");
            if (fields.size() < 2 || fields.size() > 3 || fields[0].empty())
                return fail(form);
            s.camera = fields[0];
            const size_t at = fields[1].find('@');
            long rate = 0;
            if (at == std::string::npos || !parseSize(fields[1].substr(0, at), s.size)
                || !parseInt(fields[1].substr(at + 1), 1, 240, rate))
                return fail(form);
            s.rate = static_cast<int>(rate);
            if (fields.size() == 3) {
                s.colorSpace = parseColorSpace(fields[2]);
                if (s.colorSpace == COLORSPACE_UNKNOWN)
                    return fail("unknown colour space '" + fields[2] + "' (names such as RGB_888, Y_8, DEPTH_16)");
            }
            for (const StreamOption& other : options.streams)
                if (other.path == s.path)
                    return fail("stream path '" + s.path + "' is mounted twice");
            options.streams.push_back(s);
        } else if (arg == "--codec") {
            if (!value() || (v != "h264" && v != "mjpeg"))
                return fail("--codec takes h264 or mjpeg");
            options.codec = v;
        } else if (arg == "--port") {
            long port = 0;
            if (!value() || !parseInt(v, 1, 65535, port))
                return fail("--port takes a port number from 1 to 65535");
            options.port = static_cast<int>(port);
        } else if (arg == "--bind") {
            if (!value() || v.empty())
                return fail("--bind needs an address");
            options.bind = v;
        } else if (arg == "--user") {
            if (!value() || v.empty() || v.find(':') != std::string::npos)
                return fail("--user needs a name without ':'");
            options.user = v;
        } else if (arg == "--password-file") {
            if (!value())
                return fail("--password-file needs a file");
            passwordFile = v;
        } else {
            return fail("unknown option '" + arg + "'\nTry 'framehub-serve --help'.");
        }
    }

    if (!pendingSizes.empty() || !pendingRates.empty())
        return fail((pendingSizes.empty() ? pendingRates : pendingSizes) + " must precede the --camera it describes");
    if (options.user.empty() != passwordFile.empty())
        return fail("--user and --password-file go together");
    if (!passwordFile.empty()) {
        std::ifstream file(passwordFile);
        if (!file || !std::getline(file, options.password) || options.password.empty())
            return fail("can't read a password from the first line of '" + passwordFile + "'");
        if (!options.password.empty() && options.password.back() == '\r')
            options.password.pop_back();
    }
    if (options.streams.empty())
        return fail("nothing to serve: give at least one --stream (see --help)");
    for (StreamOption& s : options.streams) {
        auto camera = std::find_if(
            options.cameras.begin(), options.cameras.end(), [&](const CameraInfo& c) { return c.name == s.camera; });
        if (camera == options.cameras.end())
            return fail("stream '" + s.path + "' names camera '" + s.camera + "', which no --camera describes");
        if (s.colorSpace == COLORSPACE_UNKNOWN)
            s.colorSpace = isDepthModel(camera->model) ? COLORSPACE_DEPTH_16 : COLORSPACE_RGB_888;
    }
    return 0;
}

} // namespace serve
