#include "CaptureShared/Privacy/Denylist.h"

#include <algorithm>
#include <string_view>

#include "CaptureShared/Foundation/Text.h"

namespace halvo {
namespace {

bool contains(const std::vector<std::string>& list, std::string_view name) {
  return std::any_of(list.begin(), list.end(), [&](const std::string& entry) { return Text::equalsIgnoringCase(entry, name); });
}

/// Prompts come in a flavour for each toolkit ("pinentry-qt5", "kwalletd6"), so their families go by the beginning of the name.
bool isLinuxPrompt(std::string_view name) {
  static constexpr std::string_view families[] = {"pinentry", "kwallet", "polkit-", "org.kde.polkit-", "org.kde.kwallet"};
  const auto lower = Text::lower(name);
  return std::any_of(std::begin(families), std::end(families), [&](std::string_view family) { return lower.starts_with(family); });
}

}  // namespace

const std::vector<std::string>& Denylist::defaultAppNames() {
  static const std::vector<std::string> names{
      "Passwords", "Keychain Access", "1Password",  "1Password 7", "Bitwarden", "LastPass", "Dashlane",
      "Proton Pass", "KeePassXC",     "MacPass",    "Strongbox",   "Enpass",    "NordPass", "RoboForm",
      "Keeper Password Manager",      "GPG Keychain", "Authy Desktop", "Step Two", "Ente Auth"};
  return names;
}

const std::vector<std::string>& Denylist::bundleIds() {
  static const std::vector<std::string> ids{
      "com.apple.Passwords",          "com.apple.keychainaccess",
      "com.apple.SecurityAgent",      "com.apple.LocalAuthentication.UIAgent",
      "com.apple.NetAuthAgent",       "com.apple.security.Keychain-Circle-Notification",
      "com.apple.EscrowSecurityAlert", "com.apple.Pass-Viewer",
      "com.apple.PassViewer",         "com.1password.1password",
      "com.agilebits.onepassword7",   "com.bitwarden.desktop",
      "org.keepassxc.keepassxc",      "org.gpgtools.gpgkeychain"};
  return ids;
}

const std::vector<std::string>& Denylist::linuxNames() {
  static const std::vector<std::string> names{
      "KeePassXC", "KeePass", "KeePass2", "Bitwarden", "1Password", "com.onepassword.OnePassword",
      "Secrets", "org.gnome.World.Secrets",
      "Seahorse", "org.gnome.seahorse.Application", "seahorse-ssh-askpass",
      "gcr-prompter", "gcr4-prompter", "org.gnome.keyring.SystemPrompter", "gnome-keyring-prompt",
      "lxpolkit", "lxqt-policykit-agent", "xfce-polkit", "mate-polkit", "ukui-polkit", "soteria", "hyprpolkitagent",
      "ksshaskpass", "ssh-askpass", "x11-ssh-askpass"};
  return names;
}

Denylist Denylist::fromEnvironment(const Environment& environment) {
  const auto listed = value(environment, "AMBITCAP_DENYLIST");
  if (!listed || Text::isBlank(*listed)) return Denylist(defaultAppNames());
  std::vector<std::string> names;
  for (const auto part : Text::split(*listed, ','))
    if (const auto name = Text::trim(part); !name.empty()) names.emplace_back(name);
  return Denylist(std::move(names));
}

bool Denylist::excludes(const std::optional<std::string>& appName, const std::optional<std::string>& bundleId) const {
  if (appName && contains(appNames_, *appName)) return true;
  if (bundleId && contains(bundleIds(), *bundleId)) return true;
  for (const auto& identity : {appName, bundleId})
    if (identity && (contains(linuxNames(), *identity) || isLinuxPrompt(*identity))) return true;
  return false;
}

bool Denylist::excludesAny(const std::vector<AppIdentity>& identities) const {
  return std::any_of(identities.begin(), identities.end(),
                     [&](const AppIdentity& identity) { return excludes(identity.name, identity.bundleId); });
}

}  // namespace halvo
