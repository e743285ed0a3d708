// A reference to an object that a member has registered under a key.
#pragma once

#include <typeindex>

namespace frame {

class Interface {
public:
    Interface(void* object, std::type_index type) : object_(object), type_(type) {}

    // The registered object, or null when it was registered as another type than T. The reference does not own it.
    template <class T> T* get() const {
        return type_ == std::type_index(typeid(T)) ? static_cast<T*>(object_) : nullptr;
    }

private:
    void* object_;
    std::type_index type_;
};

} // namespace frame
