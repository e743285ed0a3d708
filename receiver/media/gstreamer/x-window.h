// A window of an X display, for an element to draw in.
#pragma once

#include <cstdint>
#include <memory>
#include <string>

struct xcb_connection_t;

namespace media {

class XWindow {
public:
    // Throws Error when the display that the variable DISPLAY names cannot be used.
    XWindow(const std::string& title, std::uint16_t width, std::uint16_t height, bool fullScreen);

    std::uintptr_t handle() const { return window_; }

private:
    struct Disconnect {
        void operator()(xcb_connection_t* connection) const;
    };

    void setTitle(const std::string& title);
    std::uint32_t atom(const char* name) const;

    const std::unique_ptr<xcb_connection_t, Disconnect> connection_; // closes the window, too
    std::uint32_t window_ = 0;
};

} // namespace media
