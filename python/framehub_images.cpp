// Images as numpy views: the fetch and release wrapped in context managers,
// and put_image with its layout checks.
#include "framehub_py.h"

#include <memory>
#include <string>
#include <vector>

namespace framehub_py {

using namespace Kelmo::FrameHub;

namespace {

// How an image of a colour space sits in memory, as imageBufferToCvMat reads it.
struct Layout {
    int channels = 0; // stored per pixel: YUV 4:2:2 keeps two
    int elementSize = 0;
    bool valid() const { return channels > 0 && (elementSize == 1 || elementSize == 2 || elementSize == 4); }
};

Layout layoutOf(ColorSpace colorSpace)
{
    Layout layout;
    const uint64_t depth = getColorSpaceDepth(colorSpace);
    const uint64_t channels = colorSpace == COLORSPACE_YUV_422 ? 2 : getColorSpaceChannel(colorSpace);
    if (channels == 0 || depth % channels != 0)
        return layout;
    layout.channels = static_cast<int>(channels);
    layout.elementSize = static_cast<int>(depth / channels);
    return layout;
}

py::dtype dtypeOf(const Layout& layout)
{
    switch (layout.elementSize) {
    case 1:
        return py::dtype::of<uint8_t>();
    case 2:
        return py::dtype::of<uint16_t>();
    default:
        return py::dtype::of<float>();
    }
}

bool hasElementType(py::handle array, const Layout& layout)
{
    switch (layout.elementSize) {
    case 1:
        return py::isinstance<py::array_t<uint8_t>>(array);
    case 2:
        return py::isinstance<py::array_t<uint16_t>>(array);
    default:
        return py::isinstance<py::array_t<float>>(array);
    }
}

std::string colorSpaceText(ColorSpace colorSpace)
{
    const std::string name = getColorSpaceName(colorSpace);
    return name.empty() ? std::to_string(static_cast<int>(colorSpace)) : name.substr(sizeof("COLORSPACE_") - 1);
}

// What one fetch handed out. The metadata is read at the fetch, while the
// buffer is held: once released, the camera may rewrite it from any thread.
class Frame {
public:
    explicit Frame(const FrameHub::Buffer& image)
        : buffer(image)
        , pixels(image->getData())
        , resolution(image->getResolution())
        , colorSpace(image->getColorSpace())
        , fieldOfView(image->getFieldOfView())
        , timestamp(image->getTimeStamp())
        , camera(image->getCameraName())
    {
    }

    // A read-only view whose base is the frame, which holds the buffer:
    // converted images are shared with every subscriber of the same format.
    static py::object array(py::object self)
    {
        const Frame& frame = self.cast<const Frame&>();
        if (!frame.held)
            throw py::value_error("the image was released; copy frame.array inside the with block to keep it");
        const Layout layout = layoutOf(frame.colorSpace);
        if (!layout.valid() || !frame.pixels)
            return py::none();
        const py::ssize_t h = static_cast<py::ssize_t>(frame.resolution.height);
        const py::ssize_t w = static_cast<py::ssize_t>(frame.resolution.width);
        const py::ssize_t e = layout.elementSize;
        py::array view = layout.channels == 1
            ? py::array(dtypeOf(layout), { h, w }, { w * e, e }, frame.pixels, self)
            : py::array(dtypeOf(layout), { h, w, py::ssize_t(layout.channels) },
                { w * layout.channels * e, layout.channels * e, e }, frame.pixels, self);
        py::detail::array_proxy(view.ptr())->flags &= ~py::detail::npy_api::NPY_ARRAY_WRITEABLE_;
        return std::move(view);
    }

    FrameHub::Buffer buffer;
    const unsigned char* pixels;
    Resolution resolution;
    ColorSpace colorSpace;
    FieldOfView fieldOfView;
    int64_t timestamp;
    std::string camera;
    bool held = true;
};

void markReleased(py::handle frame)
{
    if (!frame.is_none())
        frame.cast<Frame&>().held = false;
}

enum class Kind { Converted, Raw };

// `with hub.image(name) as frame` (one camera) and `with hub.images(name) as
// frames` (one Frame or None per active camera): fetches on entry, releases
// on exit when this block got an image (a failed fetch must not release
// another's hold).
template <bool Many> class ImageContext {
public:
    ImageContext(py::object hubObject, std::string subscriber, Kind kind)
        : hubObject(std::move(hubObject))
        , hub(this->hubObject.cast<FrameHub&>())
        , name(std::move(subscriber))
        , kind(kind)
    {
    }

    ~ImageContext()
    {
        // Entered by hand and never exited: give the images back all the same.
        if (held)
            release();
    }

    py::object enter()
    {
        if (entered)
            throw py::value_error(Many ? "an image context can be entered once; call hub.images() again"
                                       : "an image context can be entered once; call hub.image() again");
        entered = true;
        std::vector<FrameHub::Buffer> images;
        {
            GilRelease nogil;
            images = fetch();
        }
        for (const FrameHub::Buffer& image : images) {
            if (image) {
                frames.append(py::cast(Frame(image)));
                held = true;
            } else {
                frames.append(py::none());
            }
        }
        if (Many)
            return frames;
        return frames.empty() ? py::object(py::none()) : py::object(frames[0]);
    }

    bool exit(py::handle, py::handle, py::handle)
    {
        if (held)
            release();
        return false;
    }

private:
    std::vector<FrameHub::Buffer> fetch()
    {
        if (Many)
            return kind == Kind::Raw ? hub.getDirectRawImages(name) : hub.getImages(name);
        return { kind == Kind::Raw ? hub.getDirectRawImage(name) : hub.getImage(name) };
    }

    void release()
    {
        held = false;
        for (py::handle frame : frames)
            markReleased(frame);
        GilRelease nogil;
        if (Many && kind == Kind::Raw)
            hub.releaseDirectRawImages(name);
        else if (Many)
            hub.releaseImages(name);
        else if (kind == Kind::Raw)
            hub.releaseDirectRawImage(name);
        else
            hub.releaseImage(name);
    }

    py::object hubObject; // keeps the hub alive while an image is out
    FrameHub& hub;
    std::string name;
    Kind kind;
    py::list frames;
    bool entered = false;
    bool held = false;
};

typedef ImageContext<false> OneImageContext;
typedef ImageContext<true> ImagesContext;

bool putImage(FrameHub& hub, const std::string& camera, py::handle image, ColorSpace colorSpace)
{
    if (!py::isinstance<py::array>(image))
        throw py::type_error("put_image(): expected a numpy array, got " + std::string(py::str(image.get_type())));
    py::array array = py::reinterpret_borrow<py::array>(image);
    const Layout layout = layoutOf(colorSpace);
    if (!layout.valid())
        throw py::value_error("put_image(): colour space " + colorSpaceText(colorSpace) + " has no image layout");

    const std::string wanted = colorSpaceText(colorSpace) + " needs a C-contiguous "
        + std::string(py::str(dtypeOf(layout))) + " array of shape (height, width"
        + (layout.channels == 1 ? std::string(")") : ", " + std::to_string(layout.channels) + ")");
    const std::string got
        = ", got " + std::string(py::str(array.dtype())) + " of shape " + std::string(py::str(array.attr("shape")));
    const bool shapeFits
        = (array.ndim() == 2 && layout.channels == 1) || (array.ndim() == 3 && array.shape(2) == layout.channels);
    if (!shapeFits || !hasElementType(array, layout))
        throw py::value_error("put_image(): " + wanted + got);
    if (!(array.flags() & py::array::c_style))
        throw py::value_error("put_image(): " + wanted + "; use numpy.ascontiguousarray()");
    if (array.shape(0) == 0 || array.shape(1) == 0)
        throw py::value_error("put_image(): the image is empty" + got);

    const Resolution resolution(static_cast<uint64_t>(array.shape(1)), static_cast<uint64_t>(array.shape(0)));
    const void* pixels = array.data();
    GilRelease nogil;
    return hub.putImage(camera, resolution, colorSpace, pixels);
}

} // namespace

void bindImages(py::module_& m, HubClass& hub)
{
    using namespace pybind11::literals;

    py::class_<Frame>(m, "Frame", "An image held from a fetch until its with block ends.")
        .def_property_readonly("array", &Frame::array,
            "A read-only numpy view over the pixels, valid inside the with block only: copy it to keep it.")
        .def_property_readonly(
            "timestamp", [](const Frame& f) { return f.timestamp; }, "Microseconds since the epoch.")
        .def_property_readonly("camera", [](const Frame& f) { return f.camera; })
        .def_property_readonly("color_space", [](const Frame& f) { return f.colorSpace; })
        .def_property_readonly("resolution", [](const Frame& f) { return f.resolution; })
        .def_property_readonly("field_of_view", [](const Frame& f) { return f.fieldOfView; })
        .def("__repr__", [](const Frame& f) {
            return "<framehub.Frame " + f.camera + " " + std::to_string(f.resolution.width) + "x"
                + std::to_string(f.resolution.height) + " " + colorSpaceText(f.colorSpace) + (f.held ? "" : " released")
                + ">";
        });

    py::class_<OneImageContext>(m, "ImageContext")
        .def("__enter__", &OneImageContext::enter)
        .def("__exit__", &OneImageContext::exit);
    py::class_<ImagesContext>(m, "ImagesContext")
        .def("__enter__", &ImagesContext::enter)
        .def("__exit__", &ImagesContext::exit);

    hub.def(
        "image",
        [](py::object self, std::string name) {
            return std::make_unique<OneImageContext>(self, std::move(name), Kind::Converted);
        },
        "name"_a, "Context manager yielding the subscriber's image as a Frame, or None.");
    hub.def(
        "raw_image",
        [](py::object self, std::string name) {
            return std::make_unique<OneImageContext>(self, std::move(name), Kind::Raw);
        },
        "name"_a, "Context manager yielding the camera's raw image as a Frame, or None.");
    hub.def(
        "images",
        [](py::object self, std::string name) {
            return std::make_unique<ImagesContext>(self, std::move(name), Kind::Converted);
        },
        "name"_a, "Context manager yielding a list of Frame or None, one per active camera.");
    hub.def(
        "raw_images",
        [](py::object self, std::string name) {
            return std::make_unique<ImagesContext>(self, std::move(name), Kind::Raw);
        },
        "name"_a, "Context manager yielding the raw images, one Frame or None per active camera.");
    hub.def("put_image", &putImage, "camera"_a, "image"_a, "color_space"_a,
        "Feeds a simulated camera from a C-contiguous array shaped for the colour space.");
}

} // namespace framehub_py
