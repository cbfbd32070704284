#include "AmbitudeAppKit/Views/ViewMenu.h"

#include <algorithm>

#include <QActionGroup>
#include <QCoreApplication>
#include <QMenu>
#include <QMenuBar>

namespace halvo::ViewMenu {

namespace {

QString tr(const char* text) { return QCoreApplication::translate("ViewMenu", text); }

/// The size that is so many steps away, as far as there are any.
int sizeAway(int percent, int steps) {
  const auto& sizes = Appearance::textSizes;
  const auto at = static_cast<int>(std::ranges::find(sizes, percent) - sizes.begin()) + steps;
  return sizes[static_cast<std::size_t>(std::clamp(at, 0, static_cast<int>(sizes.size()) - 1))];
}

}  // namespace

void addTo(QMenuBar& bar, const Appearance& present, std::function<void(const Appearance&)> chosen) {
  auto* menu = bar.addMenu(tr("&View"));
  const auto choice = [&](QActionGroup* group, const QString& label, const Appearance& wanted) {
    auto* action = menu->addAction(label, menu, [chosen, wanted] { chosen(wanted); });
    action->setCheckable(true);
    action->setChecked(wanted == present);
    group->addAction(action);
  };
  auto* modes = new QActionGroup(menu);
  const std::pair<Appearance::Mode, QString> looks[] = {
      {Appearance::Mode::automatic, tr("As the desktop")}, {Appearance::Mode::light, tr("Light")}, {Appearance::Mode::dark, tr("Dark")}};
  for (const auto& [mode, label] : looks) choice(modes, label, {.mode = mode, .textPercent = present.textPercent});
  menu->addSeparator();
  auto* sizes = new QActionGroup(menu);
  for (const auto percent : Appearance::textSizes)
    choice(sizes, tr("Text %1 %").arg(percent), {.mode = present.mode, .textPercent = percent});
  menu->addSeparator();
  const auto step = [&](const QString& label, const QKeySequence& key, int percent) {
    menu->addAction(label, menu, [chosen, present, percent] { chosen({.mode = present.mode, .textPercent = percent}); })->setShortcut(key);
  };
  step(tr("Larger text"), QKeySequence::ZoomIn, sizeAway(present.textPercent, 1));
  step(tr("Smaller text"), QKeySequence::ZoomOut, sizeAway(present.textPercent, -1));
  step(tr("Ordinary text"), QKeySequence(Qt::CTRL | Qt::Key_0), Appearance::textSizes.front());
}

}  // namespace halvo::ViewMenu
