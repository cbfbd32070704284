#pragma once

#include <functional>
#include <string>
#include <vector>

/// The first code of the desktop application.
namespace halvo::AppEntryPoint {

enum class Mode { dump, renderUI, application };
/// Whole-word match, position free; `--dump` wins.
Mode mode(const std::vector<std::string>& arguments);

/// Brings the environment up from `config.json` before anything reads it, then dumps, refuses the debug-only flag, or runs the application's main
/// loop. Never returns: it exits with 0 on every path.
[[noreturn]] void run(const std::vector<std::string>& arguments, const std::function<void()>& mainLoop);

}  // namespace halvo::AppEntryPoint
