// Administrators, and the order that they give to rule filters.
#pragma once

#include <vector>

#include "ZaroFilter.h"
#include "ZaroPolicyExport.h"
#include "ZaroTable.h"

namespace ZARO {
class RdbmsInterface;
}

class ZARO_POLICY_EXPORT miscUtils {
 public:
  // A group of filters that is ordered as one.
  struct FilterGroup {
    int id;                                     // stored numbers, from 1 without a gap
    const char* name;                           // stored beside it
    ZaroTable<ZaroFilter::FilterType> filters;  // that it stands for, in order
  };

  // Looks up an administrator's identifier by name.
  //   adminName   exact name, any bytes; quotes need no escaping
  //   adminId     set on success; after 1002 it may hold an unusable value
  // Returns 0, or
  //   1002  there is no such administrator, the identifier is NULL, not a 32-bit number or 4294967295, or `db` has
  //         no connection
  //   1003  the database layer threw (a null name or one too long for a statement included); logged at level 1
  static int getAdminId(ZARO::RdbmsInterface& db, const char* adminName, unsigned int& adminId);

  // Reads the administrators' own order of rule filters.
  //   bManualOrder   whether there is one and it is switched on; false after a failure
  //   order          replaced by the filters in that order, a group stored twice standing there twice; empty when it is
  //                  switched off; after a failure, as far as it was read
  //   bVerify        whether stored ranks and group names are compared with the expected ones; what differs is logged
  //                  at level 1 and changes nothing else
  // Returns 0, also when it is switched off, or
  //   1002  the switch or a group's number is missing, NULL or not a number; logged at level 1
  //   1003  the database layer threw; logged at level 1
  static int getUserDefinedRuleOrder(ZARO::RdbmsInterface& db, bool& bManualOrder,
                                     std::vector<ZaroFilter::FilterType>& order, bool bVerify);

  // The group with a number; null for any other number.
  static const FilterGroup* findFilterGroup(int id);

 private:
  static void _verifyFilterNames(ZARO::RdbmsInterface& db, int expectedOrder, int filterId);
};
