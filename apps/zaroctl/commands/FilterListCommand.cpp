// filter list
#include "ZaroFilter.h"
#include "commands/CommandTree.h"
#include "commands/Commands.h"

namespace {

ExitCode listFilters(Output& out) {
  Json rows = Json::array();
  for (const ZaroFilter::Definition& filter : ZaroFilter::definitions()) {
    rows.push_back({{"value", static_cast<int>(filter.type)}, {"name", filter.name}, {"attachment", filter.attachment}});
  }
  out.rows({{"value", "VALUE"}, {"name", "NAME"}, {"attachment", "ATTACHMENT"}}, rows);
  return ExitCode::Found;
}

}  // namespace

void addFilterList(CommandTree& tree) {
  tree.add("filter list", "List the filters that rules know, the first in rank first",
           {"zaroctl filter list", "zaroctl filter list --json"}, listFilters);
}
