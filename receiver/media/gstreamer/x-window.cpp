#include "x-window.h"

#include <cstdlib>
#include <cstring>
#include <media/engine.h>
#include <xcb/xcb.h>

namespace media {

void XWindow::Disconnect::operator()(xcb_connection_t* connection) const { xcb_disconnect(connection); }

XWindow::XWindow(const std::string& title, std::uint16_t width, std::uint16_t height, bool fullScreen)
    : connection_(xcb_connect(nullptr, nullptr)) {
    xcb_connection_t* const display = connection_.get();
    if (xcb_connection_has_error(display) != 0) throw Error("no connection to the display that DISPLAY names");
    const xcb_screen_t& screen = *xcb_setup_roots_iterator(xcb_get_setup(display)).data;
    window_ = xcb_generate_id(display);
    if (fullScreen) { // also without a window manager
        width = screen.width_in_pixels;
        height = screen.height_in_pixels;
    }
    xcb_create_window(display, XCB_COPY_FROM_PARENT, window_, screen.root, 0, 0, width, height, 0,
                      XCB_WINDOW_CLASS_INPUT_OUTPUT, screen.root_visual, XCB_CW_BACK_PIXEL, &screen.black_pixel);
    setTitle(title);
    // The receiver decides when the window closes; a window manager must not end the process for it.
    const std::uint32_t closing = atom("WM_DELETE_WINDOW");
    xcb_change_property(display, XCB_PROP_MODE_REPLACE, window_, atom("WM_PROTOCOLS"), XCB_ATOM_ATOM, 32, 1, &closing);
    if (fullScreen) {
        const std::uint32_t state = atom("_NET_WM_STATE_FULLSCREEN");
        xcb_change_property(display, XCB_PROP_MODE_REPLACE, window_, atom("_NET_WM_STATE"), XCB_ATOM_ATOM, 32, 1,
                            &state);
    }
    xcb_map_window(display, window_);
    xcb_flush(display);
}

void XWindow::setTitle(const std::string& title) {
    xcb_change_property(connection_.get(), XCB_PROP_MODE_REPLACE, window_, XCB_ATOM_WM_NAME, XCB_ATOM_STRING, 8,
                        static_cast<std::uint32_t>(title.size()), title.data());
}

std::uint32_t XWindow::atom(const char* name) const {
    xcb_connection_t* const display = connection_.get();
    const auto cookie = xcb_intern_atom(display, 0, static_cast<std::uint16_t>(std::strlen(name)), name);
    xcb_intern_atom_reply_t* const reply = xcb_intern_atom_reply(display, cookie, nullptr);
    const std::uint32_t found = reply ? reply->atom : std::uint32_t{XCB_ATOM_NONE};
    std::free(reply);
    return found;
}

} // namespace media
