#include "CaptureShared/Privacy/IdentifierChecks.h"

#include <unicode/uchar.h>

#include <algorithm>

#include "CaptureShared/Foundation/Text.h"

namespace halvo::IdentifierChecks {
namespace {

int number(std::string_view digits) {
  int result = 0;
  for (const char digit : digits) result = result * 10 + (digit - '0');
  return result;
}

bool within(int value, int low, int high) { return value >= low && value <= high; }

bool hasBrand(std::string_view card) {
  const auto length = static_cast<int>(card.size());
  const auto lead = [&](std::size_t count) { return number(card.substr(0, count)); };
  const int two = lead(2), three = lead(3), four = lead(4);
  if (two == 34 || two == 37) return length == 15;
  if (card[0] == '4') return length == 13 || length == 16 || length == 19;
  if (within(two, 51, 55) || within(four, 2221, 2720)) return length == 16;
  if (within(four, 3528, 3589)) return within(length, 16, 19);
  if (within(three, 300, 305) || two == 36 || two == 38 || two == 39) return within(length, 14, 19);
  if (four == 6011 || two == 65 || within(three, 644, 649) || two == 62) return within(length, 16, 19);
  return false;
}

bool passesLuhn(std::string_view card) {
  int sum = 0;
  bool doubled = false;
  for (auto digit = card.rbegin(); digit != card.rend(); ++digit, doubled = !doubled) {
    int value = *digit - '0';
    if (doubled) value = value * 2 > 9 ? value * 2 - 9 : value * 2;
    sum += value;
  }
  return sum % 10 == 0;
}

/// yyyy-MM-dd, in digits of any script.
bool isShapedAsDate(std::string_view value) {
  const auto parts = Text::split(value, '-');
  if (parts.size() != 3) return false;
  for (std::size_t i = 0; i < 3; ++i) {
    const std::size_t wanted = i == 0 ? 4 : 2;
    std::size_t seen = 0;
    for (std::size_t at = 0; at < parts[i].size(); ++seen)
      if (u_charDigitValue(static_cast<UChar32>(Text::nextCodePoint(parts[i], at))) < 0) return false;
    if (seen != wanted) return false;
  }
  return true;
}

}  // namespace

std::string digits(std::string_view text) {
  std::string out;
  for (std::size_t at = 0; at < text.size();) {
    const int value = u_charDigitValue(static_cast<UChar32>(Text::nextCodePoint(text, at)));
    if (value >= 0) out.push_back(static_cast<char>('0' + value));
  }
  return out;
}

bool isSSN(std::string_view value) {
  const auto all = digits(value);
  if (all.size() != 9) return false;
  const int area = number(all.substr(0, 3));
  return area != 0 && area != 666 && area < 900 && all.substr(3, 2) != "00" && all.substr(5) != "0000";
}

bool isITIN(std::string_view value) {
  const auto all = digits(value);
  if (all.size() != 9 || all[0] != '9') return false;
  const int group = number(all.substr(3, 2));
  return within(group, 50, 65) || within(group, 70, 88) || within(group, 90, 92) || within(group, 94, 99);
}

bool isSSNOrITIN(std::string_view value) { return isSSN(value) || isITIN(value); }

bool isRoutingNumber(std::string_view value) {
  const auto all = digits(value);
  if (all.size() != 9) return false;
  const int district = number(all.substr(0, 2));
  if (!within(district, 0, 12) && !within(district, 21, 32) && !within(district, 61, 72) && district != 80) return false;
  if (std::all_of(all.begin(), all.end(), [&](char digit) { return digit == all[0]; })) return false;
  constexpr int weights[] = {3, 7, 1};
  int sum = 0;
  for (std::size_t i = 0; i < all.size(); ++i) sum += weights[i % 3] * (all[i] - '0');
  return sum % 10 == 0;
}

bool isAccountNumber(std::string_view value) {
  const auto count = digits(value).size();
  return count >= 6 && count <= 17 && !isShapedAsDate(value);
}

bool isCardNumber(std::string_view value) {
  const auto card = digits(value);
  return card.size() >= 13 && card.size() <= 19 && hasBrand(card) && passesLuhn(card);
}

bool isIBAN(std::string_view value) {
  std::string compact;
  for (std::size_t at = 0; at < value.size();) {
    const auto codePoint = Text::nextCodePoint(value, at);
    if (codePoint == ' ') continue;
    const int digit = u_charDigitValue(static_cast<UChar32>(codePoint));
    if (digit >= 0) {
      compact.push_back(static_cast<char>('0' + digit));
    } else if (codePoint >= 'A' && codePoint <= 'Z') {
      compact.push_back(static_cast<char>(codePoint));
    } else {
      return false;
    }
  }
  if (compact.size() < 15 || compact.size() > 34) return false;
  std::rotate(compact.begin(), compact.begin() + 4, compact.end());
  int remainder = 0;
  for (const char c : compact)
    remainder = c <= '9' ? (remainder * 10 + (c - '0')) % 97 : (remainder * 100 + (c - 'A' + 10)) % 97;
  return remainder == 1;
}

}  // namespace halvo::IdentifierChecks
