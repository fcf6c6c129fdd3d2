#include "report_model.h"

namespace vorlane {
namespace cli {

namespace {

template <typename Item>
const Item* findByName(const std::vector<Item>& items, const std::string& name) {
  for (const Item& item : items) {
    if (item.name == name) return &item;
  }
  return nullptr;
}

}  // namespace

const ReportCounter* ReportCollection::find(const std::string& counterName) const {
  return findByName(counters, counterName);
}

const ReportCollection* Report::find(const std::string& collectionName) const {
  return findByName(collections, collectionName);
}

}  // namespace cli
}  // namespace vorlane
