#include "QUVA_Storage.h"

#include <utility>

#include "VexiloLog.h"

namespace QUVA {

std::mutex m_QUVAmutex;
TCInformationStorage* TCInformationStorage::m_pInstance = nullptr;

TCInformationStorage* TCInformationStorage::Instance() {
  std::lock_guard lock(m_QUVAmutex);
  if (!m_pInstance) m_pInstance = new TCInformationStorage;
  return m_pInstance;
}

void TCInformationStorage::Initialize() {
  ResetInformationStorage();
}

void TCInformationStorage::ResetInformationStorage() {
  std::lock_guard lock(m_QUVAmutex);
  m_SMVersion = 0;
  m_SMCount = 0;
  m_solutions.clear();
}

void TCInformationStorage::SetSolutionInformation(unsigned int count, std::vector<QUVA_Solution> solutions) {
  std::lock_guard lock(m_QUVAmutex);
  m_SMCount = count;
  m_solutions = std::move(solutions);
}

void TCInformationStorage::GetSolutionInformation(unsigned int& count, std::vector<QUVA_Solution>& out) {
  std::lock_guard lock(m_QUVAmutex);
  VEXILO_LOGD("GetSolutionInformation IN");
  count = m_SMCount;
  out.insert(out.end(), m_solutions.begin(), m_solutions.end());
  VEXILO_LOGD("GetSolutionInformation Out");
}

void TCInformationStorage::SetSMCount(unsigned int count) {
  std::lock_guard lock(m_QUVAmutex);
  m_SMCount = count;
}

void TCInformationStorage::GetSMCount(unsigned int& count) {
  std::lock_guard lock(m_QUVAmutex);
  count = m_SMCount;
}

void TCInformationStorage::SetSMVersion(unsigned int version) {
  std::lock_guard lock(m_QUVAmutex);
  m_SMVersion = version;
}

void TCInformationStorage::GetSMVersion(unsigned int& version) {
  std::lock_guard lock(m_QUVAmutex);
  version = m_SMVersion;
}

void TCInformationStorage::GetQUVAMapInformation(TSCurrentQUVAMap& out) {
  std::lock_guard lock(m_QUVAmutex);
  out.version = m_SMVersion;
  out.count = m_SMCount;
  out.solutions = m_solutions;
}

}  // namespace QUVA
