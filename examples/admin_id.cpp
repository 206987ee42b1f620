#include <iostream>
#include <string>

#include "RdbmsInterface.h"
#include "miscUtils.h"

int main(int argc, char** argv) {
  if (argc != 2 || !ZARO::RdbmsInterface::Init(nullptr, nullptr, nullptr, nullptr)) {
    return 2;
  }
  ZARO::RdbmsInterface db;
  unsigned int id = 0;
  const int code = miscUtils::getAdminId(db, argv[1], id);
  std::cout << (code == 0 ? std::to_string(id) : "code " + std::to_string(code)) << '\n';
  return code == 0 ? 0 : 1;
}
