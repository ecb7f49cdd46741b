#include "CManageStorage.h"

#include "CGetData.h"

namespace QUVA {

CManageStorage* CManageStorage::Instance() {
  static auto* instance = new CManageStorage;
  return instance;
}

void CManageStorage::m_CreateManageStorageScreen() {
  CGetData::GetInstance()->m_SetCurrentScreen(SCREEN_MANAGE_STORAGE);
  m_screen.m_Open("TV_SID_DEVICE_MANAGE_STORAGE",
                  {[this] { m_ShowScreenPostReturn(); }, [this] { m_HideManageStorage(); }}, true);
}

void CManageStorage::m_HideManageStorage() {
  m_screen.m_Clean();
}

void CManageStorage::m_ShowScreenPostReturn() {
  m_screen.m_ShowAfterReturn();
}

}  // namespace QUVA
