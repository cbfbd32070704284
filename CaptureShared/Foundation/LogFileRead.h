#pragma once

#include <functional>
#include <string>
#include <system_error>
#include <variant>

/// Telling "nothing yet" from "broken" when a file is read.
namespace halvo::LogFileRead {

template <class T>
struct Value {
  T value;
};
struct Unreadable {
  std::string error;
};
struct Absent {};
template <class T>
using Outcome = std::variant<Value<T>, Unreadable, Absent>;

/// Runs a body that reads a file: a missing file is `Absent`, any other failure `Unreadable`, else its `Value`.
template <class F, class T = std::invoke_result_t<F>>
Outcome<T> attempt(F&& body) {
  try {
    return Value<T>{std::forward<F>(body)()};
  } catch (const std::system_error& error) {
    if (error.code() == std::errc::no_such_file_or_directory) return Absent{};
    return Unreadable{error.what()};
  } catch (const std::exception& error) {
    return Unreadable{error.what()};
  }
}

}  // namespace halvo::LogFileRead
