#include "CaptureShared/Privacy/SensitiveSites.h"

#include <algorithm>

#include "CaptureShared/Foundation/Regex.h"
#include "CaptureShared/Foundation/Text.h"

namespace halvo::SensitiveSites {
namespace {

bool isInDomain(std::string_view host, std::string_view domain) {
  return host == domain || (host.size() > domain.size() && host.ends_with(domain) && host[host.size() - domain.size() - 1] == '.');
}

bool isInAny(std::string_view host, const std::vector<std::string>& domains) {
  return std::any_of(domains.begin(), domains.end(), [&](const std::string& domain) { return isInDomain(host, domain); });
}

std::string anyOf(const std::vector<std::string>& texts) { return Text::replaceAll(Text::join(texts, "|"), ".", "\\."); }

Regex phrasePattern(const std::vector<std::string>& phrases) {
  return Regex("(?i)(?<![A-Za-z0-9])(?:" + anyOf(phrases) + ")(?![A-Za-z0-9])");
}

/// A domain written out: not the tail of a longer label, and not the head of a longer name.
Regex domainPattern(const std::vector<std::string>& domains) {
  return Regex("(?i)(?<![A-Za-z0-9-])(?:" + anyOf(domains) + ")(?![A-Za-z0-9-]|\\.[A-Za-z0-9])");
}

}  // namespace

const std::vector<std::string>& financialDomains() {
  static const std::vector<std::string> domains{
      "chase.com",      "bankofamerica.com", "wellsfargo.com", "citi.com",        "citibank.com", "capitalone.com", "usbank.com",
      "pnc.com",        "truist.com",        "tdbank.com",     "ally.com",        "discover.com", "americanexpress.com", "usaa.com",
      "navyfederal.org", "schwab.com",       "fidelity.com",   "vanguard.com",    "etrade.com",   "robinhood.com",  "sofi.com",
      "chime.com",      "paypal.com",        "venmo.com",      "wise.com",        "creditkarma.com", "experian.com", "equifax.com",
      "transunion.com", "irs.gov",           "ssa.gov",        "turbotax.intuit.com"};
  return domains;
}

const std::vector<std::string>& medicalDomains() {
  static const std::vector<std::string> domains{
      "kp.org",       "followmyhealth.com", "onemedical.com", "zocdoc.com", "teladoc.com", "labcorp.com",
      "questdiagnostics.com", "goodrx.com", "healthcare.gov", "medicare.gov", "myuhc.com", "anthem.com",
      "aetna.com",    "cigna.com",          "bcbs.com",       "betterhelp.com", "talkspace.com", "23andme.com"};
  return domains;
}

const std::vector<std::string>& medicalHostLabels() {
  static const std::vector<std::string> labels{"mychart"};
  return labels;
}

const std::vector<std::string>& financialTitlePhrases() {
  static const std::vector<std::string> phrases{
      "Bank of America", "Wells Fargo", "Capital One", "Charles Schwab", "American Express", "Navy Federal", "Credit Karma", "Citibank",
      "USAA", "PayPal", "Venmo", "TurboTax", "Experian", "Equifax", "TransUnion", "Online Banking"};
  return phrases;
}

const std::vector<std::string>& medicalTitlePhrases() {
  static const std::vector<std::string> phrases{"MyChart", "Patient Portal", "Kaiser Permanente", "Quest Diagnostics", "Labcorp", "Zocdoc",
                                                "Teladoc", "GoodRx", "BetterHelp", "Talkspace", "23andMe", "One Medical",
                                                "FollowMyHealth"};
  return phrases;
}

std::optional<std::string> host(std::string_view url) {
  url = Text::trim(url);
  if (const auto scheme = url.find("://"); scheme != std::string_view::npos && scheme < url.find_first_of("/?#"))
    url.remove_prefix(scheme + 3);
  url = url.substr(0, url.find_first_of("/?#\\"));
  if (const auto user = url.rfind('@'); user != std::string_view::npos) url.remove_prefix(user + 1);
  url = url.substr(0, url.find(':'));
  while (url.ends_with('.')) url.remove_suffix(1);
  if (url.empty()) return std::nullopt;
  return Text::lower(url);
}

std::optional<Category> categoryForHost(std::string_view given) {
  auto name = Text::lower(given);
  while (name.ends_with('.')) name.pop_back();
  if (name.starts_with("www.")) name.erase(0, 4);
  if (isInAny(name, financialDomains())) return Category::financial;
  if (isInAny(name, medicalDomains())) return Category::medical;
  for (const auto label : Text::split(name, '.'))
    for (const auto& listed : medicalHostLabels())
      if (label == listed) return Category::medical;
  return std::nullopt;
}

std::optional<Category> categoryInTitle(std::string_view title) {
  static const Regex financial = phrasePattern(financialTitlePhrases());
  static const Regex medical = phrasePattern(medicalTitlePhrases());
  if (financial.matches(title)) return Category::financial;
  if (medical.matches(title)) return Category::medical;
  return std::nullopt;
}

std::optional<Category> categoryOfDomainInTitle(std::string_view title) {
  static const Regex financial = domainPattern(financialDomains());
  static const Regex medical = domainPattern(medicalDomains());
  if (financial.matches(title)) return Category::financial;
  if (medical.matches(title)) return Category::medical;
  return std::nullopt;
}

std::optional<Category> category(const Moment& moment) {
  if (moment.browserURL)
    if (const auto name = host(*moment.browserURL))
      if (const auto found = categoryForHost(*name)) return found;
  for (const auto& title : {moment.browserTitle, moment.windowTitle}) {
    if (!title) continue;
    if (const auto found = categoryInTitle(*title)) return found;
    if (const auto found = categoryOfDomainInTitle(*title)) return found;
  }
  return std::nullopt;
}

}  // namespace halvo::SensitiveSites
