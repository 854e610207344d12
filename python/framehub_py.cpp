// The extension module framehub._framehub: the hub and the vocabulary.
// The package's __init__.py adds CameraInfo and the logging bridge.
#include "framehub_py.h"

#include <kelmoerror/kelmo_error.h>

#include <chrono>
#include <optional>
#include <string>
#include <thread>
#include <vector>

namespace framehub_py {

using namespace Kelmo::FrameHub;

namespace {

// Members by number, one new reference handed out per cast.
struct EnumTable {
    PyObject* cls = nullptr;
    std::vector<PyObject*> members;
};
EnumTable colorSpaces, parameters;

py::handle memberOf(const EnumTable& table, int value)
{
    if (value >= 0 && static_cast<size_t>(value) < table.members.size())
        return py::handle(table.members[value]).inc_ref();
    return PyLong_FromLong(value);
}

// IntEnum from the library's name table, the C++ prefix dropped.
void makeEnum(py::module_& m, EnumTable& table, const char* name, const std::string& prefix, int count,
    std::string (*nameOf)(int))
{
    py::list members;
    for (int value = 0; value < count; ++value) {
        std::string member = nameOf(value);
        if (member.compare(0, prefix.size(), prefix) == 0)
            member.erase(0, prefix.size());
        members.append(py::make_tuple(member, value));
    }
    py::object cls = py::module_::import("enum").attr("IntEnum")(name, members, py::arg("module") = "framehub");
    m.attr(name) = cls;
    table.cls = cls.release().ptr();
    for (int value = 0; value < count; ++value)
        table.members.push_back(py::handle(table.cls)(value).release().ptr());
}

// Any object with CameraInfo's attributes; the dataclass of __init__.py is one.
CameraInfo toCameraInfo(py::handle object)
{
    CameraInfo info;
    const char* field = "name";
    try {
        info.name = py::cast<std::string>(object.attr("name"));
        field = "model";
        info.model = py::cast<std::string>(object.attr("model"));
        field = "backend_argument";
        info.backendArgument = py::cast<std::string>(py::getattr(object, "backend_argument", py::str("")));
        field = "field_of_view";
        info.fieldOfView = py::cast<FieldOfView>(object.attr("field_of_view"));
        field = "horizontal_flip";
        info.horizontalFlip = py::cast<bool>(py::getattr(object, "horizontal_flip", py::bool_(false)));
        field = "vertical_flip";
        info.verticalFlip = py::cast<bool>(py::getattr(object, "vertical_flip", py::bool_(false)));
        field = "resolutions";
        for (py::handle r : object.attr("resolutions"))
            info.resolutions.insert(py::cast<Resolution>(r));
        field = "color_spaces";
        for (py::handle c : object.attr("color_spaces"))
            info.colorSpaces.insert(py::cast<ColorSpace>(c));
        field = "frame_rates";
        for (py::handle f : object.attr("frame_rates"))
            info.frameRates.insert(py::cast<int>(f));
    } catch (py::cast_error&) {
        throw py::type_error(std::string("CameraInfo.") + field + " has the wrong type");
    } catch (py::error_already_set& e) {
        if (!e.matches(PyExc_AttributeError) && !e.matches(PyExc_TypeError))
            throw;
        throw py::type_error(std::string("CameraInfo.") + field + " is missing or not iterable");
    }
    return info;
}

py::object namedTuple(const char* name, const char* fields)
{
    return py::module_::import("collections").attr("namedtuple")(name, fields, py::arg("module") = "framehub");
}

PyObject* parameterInfoType = nullptr;
PyObject* preferencesType = nullptr;

} // namespace

bool pythonIsFinalizing()
{
#if PY_VERSION_HEX >= 0x030D0000
    return !Py_IsInitialized() || Py_IsFinalizing();
#else
    return !Py_IsInitialized() || _Py_IsFinalizing();
#endif
}

// The thread that finalises holds the GIL throughout and may take it back.
GilRelease::GilRelease()
    : _finalizing(pythonIsFinalizing())
    , _state(PyEval_SaveThread())
{
}

GilRelease::~GilRelease() noexcept(false)
{
    while (!_finalizing && pythonIsFinalizing())
        std::this_thread::sleep_for(std::chrono::seconds(1));
    PyEval_RestoreThread(_state);
}

py::handle colorSpaceMember(int value) { return memberOf(colorSpaces, value); }
py::handle parameterMember(int value) { return memberOf(parameters, value); }

void bindEnums(py::module_& m)
{
    makeEnum(m, colorSpaces, "ColorSpace", "COLORSPACE_", COLORSPACE_UNKNOWN + 1,
        [](int v) { return getColorSpaceName(static_cast<ColorSpace>(v)); });
    makeEnum(m, parameters, "Parameter", "PARAMETER_", PARAMETER_INVALID + 1,
        [](int v) { return getParameterName(static_cast<Parameter>(v)); });
}

} // namespace framehub_py

using namespace framehub_py;

PYBIND11_MODULE(_framehub, m)
{
    using namespace pybind11::literals;
    const auto nogil = py::call_guard<GilRelease>();

    m.doc() = "libframehub's client interface; import it as the package framehub.";
    bindEnums(m);

    py::object parameterInfo = namedTuple("ParameterInfo", "minimum maximum step default");
    m.attr("ParameterInfo") = parameterInfo;
    parameterInfoType = parameterInfo.release().ptr();
    py::object preferences = namedTuple("Preferences", "resolution color_space frame_rate");
    m.attr("Preferences") = preferences;
    preferencesType = preferences.release().ptr();

    m.attr("INVALID_PARAMETER_VALUE") = INVALID_PARAMETER_VALUE;
    // Never destroyed: a static's destructor would run after the interpreter is gone.
    static py::exception<Kelmo::KelmoError>* error = new py::exception<Kelmo::KelmoError>(m, "Error", PyExc_ValueError);
    py::register_exception_translator([](std::exception_ptr p) {
        try {
            if (p)
                std::rethrow_exception(p);
        } catch (const Kelmo::KelmoError& e) {
            (*error)(e.getDescription().c_str());
        }
    });

    m.def("color_space_name", &getColorSpaceName, "color_space"_a);
    m.def("color_space_depth", &getColorSpaceDepth, "color_space"_a, "Bytes a pixel.");
    m.def("color_space_channels", &getColorSpaceChannel, "color_space"_a);
    m.def("parameter_name", &getParameterName, "parameter"_a);
    m.def("models", &CameraBuilder::models, nogil, "Every camera model this build can make, sorted.");

    HubClass hub(m, "Hub", "Shares cameras among subscribers; see the package's documentation.");
    hub.def(py::init([](py::iterable cameras) {
        std::vector<CameraInfo> infos;
        for (py::handle camera : cameras)
            infos.push_back(toCameraInfo(camera));
        GilRelease nogil;
        return HubHolder(new FrameHub(infos));
    }),
        "cameras"_a = py::tuple());
    hub.def(
        "add_camera",
        [](FrameHub& self, py::handle camera) {
            CameraInfo info = toCameraInfo(camera);
            GilRelease nogil;
            return self.addCamera(info);
        },
        "info"_a);

    // Subscribing; None where the library gives an empty name.
    auto orNone = [](std::string name) { return name.empty() ? std::nullopt : std::optional<std::string>(name); };
    hub.def(
        "subscribe",
        [orNone](FrameHub& self, const std::string& name, const std::string& camera, const Resolution& resolution,
            ColorSpace colorSpace,
            int frameRate) { return orNone(self.subscribeCamera(name, camera, resolution, colorSpace, frameRate)); },
        "name"_a, "camera"_a, "resolution"_a, "color_space"_a, "frame_rate"_a, nogil);
    hub.def(
        "subscribe_multi",
        [orNone](FrameHub& self, const std::string& name, const std::vector<std::string>& cameras,
            const std::vector<Resolution>& resolutions, const std::vector<ColorSpace>& colorSpaces, int frameRate) {
            return orNone(self.subscribeCameras(name, cameras, resolutions, colorSpaces, frameRate));
        },
        "name"_a, "cameras"_a, "resolutions"_a, "color_spaces"_a, "frame_rate"_a, nogil);
    hub.def("unsubscribe", &FrameHub::unsubscribe, "name"_a, nogil);
    hub.def("subscribers", &FrameHub::getSubscribers, nogil);

    // Retargeting a subscriber.
    hub.def("active_camera", &FrameHub::getActiveCamera, "name"_a, nogil);
    hub.def("set_active_camera", &FrameHub::setActiveCamera, "name"_a, "camera"_a, nogil);
    hub.def("resolution", &FrameHub::getResolution, "name"_a, nogil);
    hub.def("set_resolution", &FrameHub::setResolution, "name"_a, "resolution"_a, nogil);
    hub.def("color_space", &FrameHub::getColorSpace, "name"_a, nogil);
    hub.def("set_color_space", &FrameHub::setColorSpace, "name"_a, "color_space"_a, nogil);
    hub.def("frame_rate", &FrameHub::getFrameRate, "name"_a, nogil);
    hub.def("set_frame_rate", &FrameHub::setFrameRate, "name"_a, "frame_rate"_a, nogil);
    hub.def("active_cameras", &FrameHub::getActiveCameras, "name"_a, nogil);
    hub.def("set_active_cameras", &FrameHub::setActiveCameras, "name"_a, "cameras"_a, nogil);
    hub.def("resolutions", &FrameHub::getResolutions, "name"_a, nogil);
    hub.def("set_resolutions", &FrameHub::setResolutions, "name"_a, "resolutions"_a, nogil);
    hub.def("color_spaces", &FrameHub::getColorSpaces, "name"_a, nogil);
    hub.def("set_color_spaces", &FrameHub::setColorSpaces, "name"_a, "color_spaces"_a, nogil);
    hub.def("default_active_camera", &FrameHub::getDefaultActiveCamera, nogil);
    hub.def("set_default_active_camera", &FrameHub::setDefaultActiveCamera, "camera"_a, nogil);

    // Cameras by name ("Default" accepted).
    hub.def("open_camera", &FrameHub::openCamera, "camera"_a, nogil);
    hub.def("close_camera", &FrameHub::closeCamera, "camera"_a, nogil);
    hub.def("is_camera_open", &FrameHub::isCameraOpen, "camera"_a, nogil);
    hub.def("start_camera", &FrameHub::startCamera, "camera"_a, nogil);
    hub.def("stop_camera", &FrameHub::stopCamera, "camera"_a, nogil);
    hub.def("is_camera_started", &FrameHub::isCameraStarted, "camera"_a, nogil);
    hub.def("reset_camera", &FrameHub::resetCamera, "camera"_a, nogil);
    hub.def("camera_model", &FrameHub::getCameraModel, "camera"_a, nogil);
    hub.def("camera_name", &FrameHub::getCameraName, "camera"_a, nogil);
    hub.def("camera_frame_rate", &FrameHub::getCameraFrameRate, "camera"_a, nogil);
    hub.def("camera_frame_rate_range", &FrameHub::getCameraFrameRateRange, "camera"_a, nogil);
    hub.def("camera_resolution", &FrameHub::getCameraResolution, "camera"_a, nogil);
    hub.def("camera_resolution_range", &FrameHub::getCameraResolutionRange, "camera"_a, nogil);
    hub.def("camera_color_space", &FrameHub::getCameraColorSpace, "camera"_a, nogil);
    hub.def("camera_field_of_view", &FrameHub::getCameraFieldOfView, "camera"_a, nogil);
    hub.def(
        "camera_parameter",
        [](const FrameHub& self, const std::string& camera, Parameter parameter) {
            const int value = self.getCameraParameter(camera, parameter);
            return value == INVALID_PARAMETER_VALUE ? std::nullopt : std::optional<int>(value);
        },
        "camera"_a, "parameter"_a, nogil, "The value, or None when the camera has no answer.");
    hub.def(
        "camera_parameter_info",
        [](const FrameHub& self, const std::string& camera, Parameter parameter) {
            ParameterInfo info;
            {
                GilRelease nogil;
                info = self.getCameraParameterInfo(camera, parameter);
            }
            return py::handle(parameterInfoType)(info.minimum, info.maximum, info.step, info.defaultValue);
        },
        "camera"_a, "parameter"_a);
    hub.def("set_camera_parameter", &FrameHub::setCameraParameter, "camera"_a, "parameter"_a, "value"_a, nogil);
    hub.def(
        "set_camera_parameter_to_default", &FrameHub::setCameraParameterToDefault, "camera"_a, "parameter"_a, nogil);
    hub.def("set_all_camera_parameters_to_default", &FrameHub::setAllCameraParametersToDefault, "camera"_a, nogil);

    // Angles from the image centre against fractions of the image.
    hub.def("angular_position_from_image_position", &FrameHub::getAngularPositionFromImagePosition, "camera"_a,
        "position"_a, nogil);
    hub.def("image_position_from_angular_position", &FrameHub::getImagePositionFromAngularPosition, "camera"_a,
        "position"_a, nogil);
    hub.def("angular_size_from_image_size", &FrameHub::getAngularSizeFromImageSize, "camera"_a, "size"_a, nogil);
    hub.def("image_size_from_angular_size", &FrameHub::getImageSizeFromAngularSize, "camera"_a, "size"_a, nogil);
    hub.def(
        "image_info_from_angular_info",
        [](const FrameHub& self, const std::string& camera, const std::vector<float>& info,
            std::optional<Resolution> resolution) {
            return resolution ? self.getImageInfoFromAngularInfoWithResolution(camera, info, *resolution)
                              : self.getImageInfoFromAngularInfo(camera, info);
        },
        "camera"_a, "info"_a, "resolution"_a = py::none(), nogil);

    hub.def(
        "expected_image_parameters",
        [](const FrameHub& self, const std::string& camera) {
            Resolution resolution;
            ColorSpace colorSpace;
            int rate;
            {
                GilRelease nogil;
                const CameraPreferences expected = self.getExpectedImageParameters(camera);
                resolution = expected.getResolution();
                colorSpace = expected.getColorSpace();
                rate = expected.getRefreshRate();
            }
            return py::handle(preferencesType)(resolution, colorSpace, rate);
        },
        "camera"_a, "What put_image should be given for this camera now.");
    hub.def("cameras", &FrameHub::getCameraIndexes, nogil, "The registered cameras' names.");
    hub.def(
        "is_camera_3d_plugged", [](FrameHub& self) { return self.isCamera3DPlugged(true); }, nogil);

    bindImages(m, hub);
    bindLogs(m);
}
