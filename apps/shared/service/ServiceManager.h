// What the service manager is told, if there is one.
#pragma once

#include <string>

void tellReady(const std::string& status);
void tellReloading();
void tellStopping(const std::string& status);
