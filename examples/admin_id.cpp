#include <cstdio>

#include "RdbmsInterface.h"
#include "miscUtils.h"

int main(int argc, char** argv) {
  if (argc != 2 || !ZARO::RdbmsInterface::Init(nullptr, nullptr, nullptr, nullptr))
    return 2;
  ZARO::RdbmsInterface db;
  unsigned int id = 0;
  const int code = miscUtils::getAdminId(db, argv[1], id);
  if (code == 0)
    std::printf("%u\n", id);
  return code == 0 ? 0 : 1;
}
