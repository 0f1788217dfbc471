#pragma once

// How work that finishes on another thread (a seek, a directory event) gets
// back to the thread that owns the editor's state: the application hands its
// event loop's "run this later on the main thread" to whoever needs it. The
// poster may be called from any thread; the task runs later, on the main
// thread, in the order posted.

#include <functional>

namespace rilo {

using MainThreadPoster = std::function<void(std::function<void()>)>;

} // namespace rilo
