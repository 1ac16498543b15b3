#include "tools/status/Matching.h"

#include <unistd.h>

#include <algorithm>
#include <functional>
#include <map>

namespace {

// Items without a process, by a form of their command line.
using Waiting = std::multimap<std::string, ItemStatus*, std::less<>>;

void Give(const Worker& worker, ItemStatus* item) {
  item->worker = worker;
  item->state = IsChain(worker) ? ItemState::kChain : ItemState::kRunning;
}

bool GiveFound(const Worker& worker, Waiting* waiting,
               Waiting::iterator found) {
  if (found == waiting->end()) {
    return false;
  }
  Give(worker, found->second);
  waiting->erase(found);
  return true;
}

void MatchStarts(std::vector<Worker>* workers, Waiting* waiting) {
  for (int words = 0; words <= kInterpreterWords; ++words) {
    std::erase_if(*workers, [&](const Worker& worker) {
      return GiveFound(worker, waiting,
                       waiting->find(WithoutWords(worker.command_line, words)));
    });
  }
}

// The words with a blank before each, last character first.
std::string Backwards(std::string_view command_line) {
  std::string text(command_line.rbegin(), command_line.rend());
  std::ranges::replace(text, '\0', ' ');
  text.erase(0, 1).push_back(' ');
  return text;
}

void MatchEnds(std::vector<Worker>* workers, const Waiting& waiting) {
  Waiting backwards;
  for (const auto& [command_line, item] : waiting) {
    backwards.emplace(Backwards(command_line), item);
  }
  std::erase_if(*workers, [&](const Worker& worker) {
    const std::string end = Backwards(worker.command_line);
    const auto found = backwards.lower_bound(end);
    return !worker.command_line.empty() && found != backwards.end() &&
           found->first.starts_with(end) &&
           GiveFound(worker, &backwards, found);
  });
}

std::vector<ItemStatus*> ItemsLeft(LauncherStatus* launcher) {
  std::vector<ItemStatus*> left;
  for (ItemStatus& item : launcher->items) {
    if (!item.worker) {
      left.push_back(&item);
    }
  }
  return left;
}

bool CanExecute(const std::filesystem::path& program) {
  std::error_code ignored;
  return std::filesystem::is_regular_file(program, ignored) &&
         access(program.c_str(), X_OK) == 0;
}

void MatchChain(std::vector<Worker>* workers, LauncherStatus* launcher) {
  if (std::ranges::count_if(*workers, IsChain) != 1) {
    return;
  }
  std::vector<ItemStatus*> items = ItemsLeft(launcher);
  std::erase_if(items,
                [](ItemStatus* item) { return CanExecute(item->program); });
  if (items.size() == 1) {
    const auto chain = std::ranges::find_if(*workers, IsChain);
    Give(*chain, items[0]);
    workers->erase(chain);
  }
}

}  // namespace

std::string_view WithoutWords(std::string_view command_line, int words) {
  for (; words > 0 && !command_line.empty(); --words) {
    command_line.remove_prefix(
        std::min(command_line.find('\0'), command_line.size() - 1) + 1);
  }
  return command_line;
}

void Match(std::vector<Worker> workers, LauncherStatus* launcher) {
  Waiting waiting;
  for (ItemStatus& item : launcher->items) {
    if (!item.command_line.empty()) {
      waiting.emplace(item.command_line, &item);
    }
  }
  MatchStarts(&workers, &waiting);
  MatchEnds(&workers, waiting);
  MatchChain(&workers, launcher);
  const std::vector<ItemStatus*> left = ItemsLeft(launcher);
  if (workers.size() == 1 && left.size() == 1) {
    Give(workers[0], left[0]);
    workers.clear();
  }
  launcher->unassigned = std::move(workers);
}
