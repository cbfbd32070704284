#include "AmbitudeCore/Backends/Server/OllamaKeepAlive.h"

#include <algorithm>
#include <charconv>
#include <optional>

namespace halvo::OllamaKeepAlive {
namespace {

std::optional<int> seconds(std::string_view text) {
  if (!isValid(text)) return std::nullopt;
  const int unit = text.back() == 's' ? 1 : text.back() == 'm' ? 60 : 3600;
  int number = 0, product = 0;
  if (std::from_chars(text.data(), text.data() + text.size() - 1, number).ec != std::errc()) return std::nullopt;
  return __builtin_mul_overflow(number, unit, &product) ? std::nullopt : std::optional(product);
}

}  // namespace

bool isValid(std::string_view text) {
  if (text.size() < 2 || std::string_view("smh").find(text.back()) == std::string_view::npos) return false;
  const auto digits = text.substr(0, text.size() - 1);
  return digits.front() != '0' && std::all_of(digits.begin(), digits.end(), [](char c) { return c >= '0' && c <= '9'; });
}

std::string configured(const Environment& environment) {
  const auto named = value(environment, envVar);
  return named && isValid(*named) ? *named : std::string(fallback);
}

int sleepIdleSeconds(std::string_view text) { return seconds(text).value_or(seconds(fallback).value_or(0)); }

}  // namespace halvo::OllamaKeepAlive
