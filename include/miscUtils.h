// Administrators.
#pragma once

#include "ZaroPolicyExport.h"

namespace ZARO {
class RdbmsInterface;
}

class ZARO_POLICY_EXPORT miscUtils {
 public:
  // Looks up an administrator's identifier by name.
  //   adminName   exact name, any bytes; quotes need no escaping
  //   adminId     set on success; after 1002 it may hold an unusable value
  // Returns 0, or
  //   1002  there is no such administrator, the identifier is NULL, not a 32-bit number or 4294967295, or `db` has
  //         no connection
  //   1003  the database layer threw (a null name or one too long for a statement included); logged at level 1
  static int getAdminId(ZARO::RdbmsInterface& db, const char* adminName, unsigned int& adminId);
};
