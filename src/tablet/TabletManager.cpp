#include "tablet/TabletManager.h"

PressureReplier* TabletManager::commandServer = nullptr;
PressureReplier* TabletManager::tabletServer = nullptr;
bool TabletManager::listening = false;
std::int64_t TabletManager::previousProximityStatus = -1;

void TabletManager::Init(PressureReplier* itsCommandServer, PressureReplier* itsTabletServer) {
    commandServer = itsCommandServer;
    tabletServer = itsTabletServer;
}
