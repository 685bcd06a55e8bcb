// Objects whose constructor has not run: Python makes them by Class.__new__(Class).
#pragma once

#include <pybind11/pybind11.h>

namespace jurn::python {

/** Refuses them as arguments, where pybind11 would hand on memory that nothing has filled. */
template <class T>
class MadeCaster : public pybind11::detail::type_caster_base<T> {
 public:
  bool load(pybind11::handle source, bool convert) {
    if (PyObject_TypeCheck(source.ptr(), this->typeinfo->type)) {
      auto* const object = reinterpret_cast<pybind11::detail::instance*>(source.ptr());
      if (!object->get_value_and_holder().value_ptr())
        throw pybind11::type_error("the object was made without its constructor");
    }
    return pybind11::detail::type_caster_base<T>::load(source, convert);
  }
};

}  // namespace jurn::python
