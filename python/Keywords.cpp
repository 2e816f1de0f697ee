// The library's parameter tables as Python keyword arguments, and the `fixnan` keyword.
#include "python/Keywords.h"

#include "python/ImageArrays.h"

namespace quorblen::python {

std::string keywordOf(const char* name) {
    std::string keyword = name;
    if (keyword == "lambda") {
        return "lam";
    }
    for (char& c : keyword) {
        c = c == '-' ? '_' : c;
    }
    return keyword;
}

double numberOf(const py::handle& value, const std::string& keyword, bool whole) {
    PyObject* object = value.ptr();
    const PyNumberMethods* methods = Py_TYPE(object)->tp_as_number;
    if (PyIndex_Check(object) == 0 &&
        (whole || methods == nullptr || methods->nb_float == nullptr)) {
        throw py::type_error(keyword + " must be " + (whole ? "an integer" : "a number") +
                             ", not " + typeNameOf(value));
    }
    // An integer too large for a double raises OverflowError here.
    return py::float_(py::reinterpret_borrow<py::object>(value));
}

void unexpectedKeyword(const char* function, const std::string& keyword) {
    throw py::type_error(std::string(function) + "() got an unexpected keyword argument '" +
                         keyword + "'");
}

std::string pythonNumber(double value, bool whole) {
    const std::string text = valueText({0, 0, false, whole}, value);
    return whole || text.find_first_not_of("-0123456789") != std::string::npos ? text : text + ".0";
}

std::string fixNanSignature() {
    return std::string(fixNanKeyword) + ": str = '" + nonFiniteModes()[0].name + "'";
}

std::string fixNanHelp() {
    std::string text = std::string("    ") + fixNanKeyword + " (" + nonFiniteModeNames("'") +
                       "; '" + nonFiniteModes()[0].name +
                       "')\n        what to do with samples that are not finite numbers (NaN or "
                       "infinite),\n        which the solve would spread:\n";
    for (const NonFiniteModeInfo& info : nonFiniteModes()) {
        text += std::string("        '") + info.name + "': " + info.meaning + "\n";
    }
    return text;
}

NonFiniteMode fixNanMode(const py::handle& value) {
    if (!py::isinstance<py::str>(value)) {
        throw py::type_error(std::string(fixNanKeyword) + " must be a str, not " +
                             typeNameOf(value));
    }
    const std::string name = py::str(value);
    if (const NonFiniteModeInfo* info = findNonFiniteMode(name)) {
        return info->mode;
    }
    throw py::value_error(std::string(fixNanKeyword) + " must be one of " +
                          nonFiniteModeNames("'") + ", not '" + name + "'");
}

void fixNonFinite(ImageBuffer& image, NonFiniteMode mode, const char* name) {
    const std::size_t count = countNonFinite(image);
    if (count > 0 && mode == NonFiniteMode::Error) {
        throw py::value_error(name + (": " + nonFiniteText(count)));
    }
    if (count > 0 && mode == NonFiniteMode::None) {
        const std::string warning = name + (": " + nonFiniteText(count)) + "; " + fixNanKeyword +
                                    "='black' or 'box3' repairs them";
        if (PyErr_WarnEx(PyExc_RuntimeWarning, warning.c_str(), 1) != 0) {
            throw py::error_already_set();
        }
    }
    repairNonFinite(image, mode);
}

}  // namespace quorblen::python
