#ifndef FRAMEHUB_PYTHON_FRAMEHUB_PY_H
#define FRAMEHUB_PYTHON_FRAMEHUB_PY_H

// Shared by the binding sources: the conversions between the library's value
// types and Python's (tuples, enum.IntEnum members), and the parts' entry points.
#include <framehub/frame_hub.h>

#include <pybind11/numpy.h>
#include <pybind11/pybind11.h>
#include <pybind11/stl.h>

#include <memory>

namespace framehub_py {

namespace py = pybind11;
using Kelmo::FrameHub::ColorSpace;
using Kelmo::FrameHub::FrameHub;
using Kelmo::FrameHub::Parameter;

// The Python enum classes, made at import from the library's own name tables.
// Held for the life of the process: the module is never unloaded.
py::handle colorSpaceMember(int value);
py::handle parameterMember(int value);

// Every call into the library runs without the GIL, also the destructor: a
// log record routed to Python takes the GIL while lumo's sink lock is held.
//
// A daemon thread that comes back from the library after the interpreter
// began to finalise must not take the GIL: Python would end the thread by
// unwinding it through C++ frames, which aborts the process. It waits for
// the process to end instead. The destructor may throw so that, should
// Python end the thread all the same, the unwinding passes through.
class GilRelease {
public:
    GilRelease();
    ~GilRelease() noexcept(false);
    GilRelease(const GilRelease&) = delete;
    GilRelease& operator=(const GilRelease&) = delete;

private:
    bool _finalizing;
    PyThreadState* _state;
};

// Whether the GIL may no longer be taken by a thread that gave it up.
bool pythonIsFinalizing();

struct HubDeleter {
    void operator()(FrameHub* hub) const
    {
        GilRelease nogil;
        delete hub;
    }
};
using HubHolder = std::unique_ptr<FrameHub, HubDeleter>;
using HubClass = py::class_<FrameHub, HubHolder>;

void bindEnums(py::module_& m);
void bindImages(py::module_& m, HubClass& hub);
void bindLogs(py::module_& m);

} // namespace framehub_py

namespace pybind11 {
namespace detail {

// A two-field value from a sequence of two numbers.
template <typename Pair, typename Field> bool loadPair(handle src, bool convert, Pair& value)
{
    if (!isinstance<sequence>(src) || isinstance<str>(src) || isinstance<bytes>(src))
        return false;
    sequence pair = reinterpret_borrow<sequence>(src);
    if (pair.size() != 2)
        return false;
    make_caster<Field> first, second;
    if (!first.load(pair[0], convert) || !second.load(pair[1], convert))
        return false;
    value = Pair(cast_op<Field>(first), cast_op<Field>(second));
    return true;
}

// Resolution <-> (width, height).
template <> struct type_caster<Kelmo::FrameHub::Resolution> {
    PYBIND11_TYPE_CASTER(Kelmo::FrameHub::Resolution, const_name("tuple[int, int]"));

    bool load(handle src, bool convert) { return loadPair<Kelmo::FrameHub::Resolution, uint64_t>(src, convert, value); }

    static handle cast(const Kelmo::FrameHub::Resolution& r, return_value_policy, handle)
    {
        return make_tuple(r.width, r.height).release();
    }
};

// FieldOfView <-> (horizontal, vertical), radians.
template <> struct type_caster<Kelmo::FrameHub::FieldOfView> {
    PYBIND11_TYPE_CASTER(Kelmo::FrameHub::FieldOfView, const_name("tuple[float, float]"));

    bool load(handle src, bool convert) { return loadPair<Kelmo::FrameHub::FieldOfView, float>(src, convert, value); }

    static handle cast(const Kelmo::FrameHub::FieldOfView& f, return_value_policy, handle)
    {
        return make_tuple(f.horizontal, f.vertical).release();
    }
};

// The enumerations travel as plain numbers (an IntEnum member is an int) and
// come back as members; any number is passed on, the library judges it.
template <typename Enum, handle (*member)(int)> struct int_enum_caster {
    PYBIND11_TYPE_CASTER(Enum, const_name("int"));

    bool load(handle src, bool)
    {
        make_caster<int> number;
        if (!number.load(src, false))
            return false;
        value = static_cast<Enum>(cast_op<int>(number));
        return true;
    }

    static handle cast(Enum e, return_value_policy, handle) { return member(static_cast<int>(e)); }
};

template <>
struct type_caster<Kelmo::FrameHub::ColorSpace>
    : int_enum_caster<Kelmo::FrameHub::ColorSpace, framehub_py::colorSpaceMember> {
};
template <>
struct type_caster<Kelmo::FrameHub::Parameter>
    : int_enum_caster<Kelmo::FrameHub::Parameter, framehub_py::parameterMember> {
};

} // namespace detail
} // namespace pybind11

#endif
