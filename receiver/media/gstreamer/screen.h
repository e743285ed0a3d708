// Where pictures appear and sound is heard: windows of the display and the sound card, where there are any.
#pragma once

#include "glib-pointers.h"

#include <gst/gst.h>
#include <map>
#include <media/engine.h>
#include <memory>
#include <string>

namespace media {

// The pictures of one terminal. From any thread.
class Window {
public:
    virtual ~Window() = default;
    virtual void show(GstBuffer* buffer, GstCaps* caps) = 0; // never waits
    virtual void clear() = 0;                                // shows black
};

// Where a terminal's pictures and sound go. Without, they go nowhere.
struct Output {
    std::shared_ptr<Window> window;  // null: none
    const char* soundCard = nullptr; // factory of an audio sink; null: none
};

// On one thread.
class Screen {
public:
    // Which windows there are.
    enum class Layout {
        none,
        windows,    // one for each terminal that shows something
        together,   // one for all: the main terminal fills it, the others are small pictures in it
        fullScreen, // the same, without borders
    };

    // As the settings media.output and media.sound say. Logs what is missing on this machine.
    static std::unique_ptr<Screen> configured();

    Screen(Layout layout, bool withSound);
    ~Screen();

    // Where a terminal's pictures and sound go.
    Output outputOf(const Terminal& terminal);
    void clear(const Terminal& terminal);
    // Closes the windows of terminals that show nothing. Not at once after a stop: a zap stops the old channel first.
    void releaseUnused();

    Screen(const Screen&) = delete;
    Screen& operator=(const Screen&) = delete;

private:
    class Canvas;
    class Part;

    Layout layout_;
    std::weak_ptr<Canvas> canvas_;                        // the one for all
    std::map<Terminal, std::shared_ptr<Window>> windows_; // of terminals that have shown something lately
    const char* soundCard_ = nullptr;
};

} // namespace media
