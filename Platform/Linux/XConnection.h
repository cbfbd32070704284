#pragma once

#include <cstdlib>
#include <functional>
#include <memory>
#include <optional>
#include <stdexcept>
#include <stop_token>
#include <string>
#include <string_view>

#include <xcb/xcb.h>

namespace halvo {

/// No (further) talk with an X server. `what()` is fit for a log line.
class XUnavailable : public std::runtime_error {
 public:
  enum class Kind {
    noDisplay,  ///< no display is named, nothing listens there, or it went away
    refused,    ///< it listens and doesn't let us in
    silent      ///< it didn't answer in time
  };
  XUnavailable(Kind kind, const std::string& text) : std::runtime_error(text), kind_(kind) {}
  Kind kind() const { return kind_; }

 private:
  Kind kind_;
};

struct FreeDeleter {
  void operator()(void* memory) const { std::free(memory); }
};
/// A reply as libxcb hands it over; empty when the request failed, as it does for a window that is gone.
template <class T>
using XReply = std::unique_ptr<T, FreeDeleter>;

/// A connection to an X server whose waits have an end. Requests are queued with libxcb's own functions on `raw()`; after `settle` every
/// one of their replies can be fetched without waiting.
class XConnection {
 public:
  using OnEvent = std::function<void(const xcb_generic_event_t&)>;

  /// Connects to a display such as ":0"; absent or blank: there is none. Ignores SIGPIPE in this process if nobody had a say on it, as
  /// libxcb writes to a server that died like to any other. A local display that says nothing within `timeoutSec` is silent; one on another
  /// machine may hang in its greeting. Throws `XUnavailable`.
  explicit XConnection(const std::optional<std::string>& display, double timeoutSec = 2);

  xcb_connection_t* raw() const { return connection_.get(); }
  const xcb_screen_t& screen() const { return *screen_; }

  /// Sends what is queued and waits until all of it is answered. Events that arrive meanwhile go to `onEvent`. Throws `XUnavailable`
  /// when the server is gone or `timeoutSec` pass, after which this connection is of no more use; throws `Cancelled`.
  void settle(double timeoutSec, const std::stop_token& stop, const OnEvent& onEvent = {});

  /// The atoms of `count` names, in one round trip; 0 for one that the server couldn't make. Throws like `settle`.
  void intern(const char* const* names, xcb_atom_t* atoms, std::size_t count, double timeoutSec);
  /// Whether the server has an extension. Throws like `settle`.
  bool hasExtension(const char* name, double timeoutSec);

 private:
  struct Disconnect {
    void operator()(xcb_connection_t* connection) const { xcb_disconnect(connection); }
  };
  std::unique_ptr<xcb_connection_t, Disconnect> connection_;
  const xcb_screen_t* screen_ = nullptr;
};

}  // namespace halvo
