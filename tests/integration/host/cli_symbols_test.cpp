#include <cstring>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "abi.h"
#include "cli_names.h"

namespace {

using testing::IsEmpty;

const char *const kPlain[] = {"InitCliServertoC", "UnInitCliServertoC", "g_cliRefuseActionMismatch",
                              "g_objLogger",      "g_objLoggerOpt",     "g_iLogLevel",
                              "g_bDbgFlg",        "ROOT_LOG_PATH",      "CORVANE_LOG_PATH"};

// With S for std::string and C for the management namespace; "(" alone where the arguments are the library's own
// matter.
const char *const kSignatures[] = {
    "IsCmdStrSecurity(S)",
    "CliUserNameCntStrToInt(S)",
    "C::InnerInitCliMsg(C::CliMsg&)",
    "C::CliUdsComm::CliUdsComm()",
    "C::CliUdsComm::~CliUdsComm()",
    "C::CliUdsComm::SendString(S const&, int, int, S const&)",
    "C::CliUdsComm::RecvString(S&, int, int, S&, S&)",
    "C::CliUdsComm::SendPacket(C::CliMsg*, unsigned int, int, int, S const&)",
    "C::CliUdsComm::RecvPacket(S&, int, int, S&, S&)",
    "C::CliUdsComm::PrepareSendPacket(",
    "C::CliUdsComm::SendPacketProcess(",
    "C::CliUdsComm::ProcessRecvPacket(",
    "C::CliUdsComm::CheckUserPermission(S&, int, S&, int, ",
    "C::CliUdsComm::GetUsersName(S&)",
    "C::CliUdsComm::GetUserinWhiteList(S, int&, S const&, int)",
    "C::CliUdsComm::CheckUserGroup(passwd*, int&, S const&)",
    "C::XmlModule::CliCMDtoXml(S const&, S const&)",
    "C::XmlModule::SvCMDtoXml(S const&)",
    "C::XmlModule::AnalysisXml(S const&, S const&)",
    "C::XmlModule::ToString(int, _mxml_node_s*)",
    "C::CliUdsServer::InitCliServer()",
    "C::CliUdsServer::UnInitCliServer()",
    "C::CliUdsServer::AcceptCliServer()",
    "C::CliUdsServer::Run()",
    "C::CliUdsServer::InnerRecvThreadRun()",
    "C::CliUdsServer::InnerRecvTask(int)",
    "C::CliUdsServer::CloseClient(int)",
    "C::CliUdsServer::Stop()",
    "C::CliUdsServer::SendMsg(S const&, int, S const&)",
    "C::CliUdsServer::RecvMsg(S&, int, S&, S&)",
    "C::BaseCommand::ParseParam(S&)",
    "C::BaseCommand::SetData(C::CmdData const&)",
    "C::BaseCommand::GetData()",
    "C::BaseCommand::GetAction()",
    "C::BaseCommand::IsStringFormatCorrect(S&)",
    "C::BaseCommand::~BaseCommand()",
    "vtable for C::BaseCommand",
    "C::ExitCommand::Exec(S, S&)",
    "C::CliCmdHandler::GetInstance()",
    "C::CliCmdHandler::Initialize()",
    "C::CliCmdHandler::RegisterCmd(S, std::function<std::shared_ptr<C::BaseCommand> ()>)",
    "C::CliCmdHandler::PushCmdTask(C::CmdData&, S)",
    "C::CliCmdPool::CreatePool(int)",
    "C::CliCmdPool::DestroyPool()",
    "C::CliCmdPool::PushCmdTask(std::shared_ptr<C::BaseCommand>)",
    "C::CliCmdPool::GetTaskCnt()",
    "C::UnlimitedQueue<C::BaseCommand>::Put(",
    "C::UnlimitedQueue<C::BaseCommand>::Get(",
    "C::XmlModule::XmlModule()",
    "C::XmlModule::~XmlModule()",
    "C::CliUdsServer::CliUdsServer()",
    "C::ConfigMgr::ConfigMgr()",
    "C::ConfigNode::ConfigNode()",
    "C::QueryInfoCmd::QueryInfoCmd()",
    "C::DprSmartCmd::DprSmartCmd()",
    "C::DiskLifePredictionCmd::DiskLifePredictionCmd()",
    "C::CliCmdPool::WorkerLoop()",
    "C::CliCmdPool::DBPrint(S&, int, S) const",
    "C::CliCmdPool::DBPrint(int, S&, int, S) const",
    "C::Semaphore::Semaphore(int)",
    "C::Semaphore::Signal()",
    "C::Semaphore::Wait()",
    "C::Semaphore::TimedWait(unsigned long)",
    "C::clientId",
    "C::QueryInfoCmd::Exec(S, S&)",
    "C::QueryInfoCmd::ShowDiskBaseInfo(int, S&)",
    "C::QueryInfoCmd::ShowDiskIoStatInfo(int, S&)",
    "C::QueryInfoCmd::ShowDiskHealthInfo(int, S&)",
    "C::QueryInfoCmd::ShowDiskDrmInfo(int, S&)",
    "C::QueryInfoCmd::DrmInfoHealthInfo(int, DiskMgrObj*, std::stringstream&)",
    "C::QueryInfoCmd::DrmInfoDiskLifeGet(DiskDrmInfo*, std::stringstream&)",
    "C::QueryInfoCmd::TransDiskCapacityUnit(unsigned long)",
    "C::QueryInfoCmd::GetDiskState(DISK_STATE_E)",
    "C::QueryInfoCmd::GetIntfType(DISK_TYPE_E)",
    "C::SlowDiskCmd::Exec(S, S&)",
    "C::SlowDiskCmd::ShowCmd(S&)",
    "C::SlowDiskCmd::ShowSlowDiskCmd(S&)",
    "C::SlowDiskCmd::ShowSummaryCmd(S&)",
    "C::SlowDiskCmd::GetAllOnlineDisk(unsigned int*, unsigned int, unsigned int&)",
    "C::SlowDiskCmd::IsSlowDisk(DiskMgrObj&)",
    "C::SlowDiskCmd::PrintHeader(",
    "C::SlowDiskCmd::PrintDiskInfo(",
    "C::SlowDiskCmd::PrintSummaryHeader(",
    "C::SlowDiskCmd::PrintSummaryDiskInfo(",
    "C::SlowDiskCmd::PrintEnd(",
    "C::ConfigCmd::Init(",
    "C::ConfigCmd::Exec(S, S&)",
    "C::ConfigCmd::ChangeConfig(",
    "C::ConfigCmd::ShowConfig(",
    "C::ConfigCmd::ChangeSwitchConfig(",
    "C::ConfigCmd::GetSwitchConfigStrVal(",
    "C::ConfigCmd::GetSwitchConfigIntVal(",
    "C::ConfigCmd::CliSetFeatureSwitchConfig(",
    "C::ConfigCmd::CliSetTakeOverSwitchConfig(",
    "C::ConfigCmd::CliSetDprSmartSwitchConfig(",
    "C::ConfigCmd::CliSetSlowDiskDetectSwitchConfig(",
    "C::SlowDiskDetectCmd::Init(",
    "C::SlowDiskDetectCmd::Exec(S, S&)",
    "C::SlowDiskDetectCmd::SetSlowDiskDetectParam(S&)",
    "C::SlowDiskDetectCmd::ShowSlowDiskDetectParam(S&)",
    "C::SlowDiskDetectCmd::ChangeSlowDiskDetectParam(",
    "C::SlowDiskDetectCmd::GetDiskTypeFromParam(int&)",
    "C::SlowDiskDetectCmd::InitSlowDiskDetectConfigValue(",
    "C::SlowDiskDetectCmd::SetMinThresholdValue(",
    "C::SlowDiskDetectCmd::SetMinSlowCycle(",
    "C::DprSmartCmd::Exec(S, S&)",
    "C::DprSmartCmd::SetDprSmartParam(S&)",
    "C::DprSmartCmd::ShowDprSmartParam(S&)",
    "C::DprSmartCmd::ChangeDprSmartParam()",
    "C::DprSmartCmd::GetValFromParam(int&, int&)",
    "C::DiskLifePredictionCmd::Exec(S, S&)",
    "C::DiskLifePredictionCmd::SetDiskLifePredictionParam(S&)",
    "C::DiskLifePredictionCmd::ShowDiskLifePredictionParam(S&)",
    "CLogger::Log(int, int, unsigned long, char const*, char const*, char const*, char const*, ...)",
    "CLogger::SetRollingMode(int)",
    "CLogger::SetFileSize(int)",
    "CLogger::SetLevel(int)",
    "CLogger::SetType(int)",
    "CLogger::SetDbgFlg(bool)",
    "CLogger::SetFileName(char const*)",
    "CLogger::SetFilePath(char const*)",
    "CLogger::SetLogFilePermision(char*)",
    "CLogger::SetLogFilePermisionRoot(char*)",
    "CLogger::SetLogFilePermisionCorvane(char*)",
    "CLogger::SetBakLogFilePermision(char*)",
    "CLogger::CheckBeforeLog(",
    "CLogger::MkLogHead(",
    "CLogger::MkLogLevel(",
    "CLogger::FormFileFullName(",
    "CLogger::StorageLog(long)",
    "CLogger::ProcessLogFile(",
    "CLogger::GetAllLogFile(",
    "CLogger::GetOldestLogFile(",
    "InitLog()",
    "OS_MutexInit(",
    "OS_MutexDestroy(",
    "OS_TimeLock(",
    "OS_TimeUnlock(",
    "OS_Lock(",
    "OS_Unlock(",
    "OS_FileExists(char const*)",
    "OS_FileDelete(char const*)",
    "OS_Now(",
    "OS_LocalTime(",
    "FindOrCreateLogDirectory(",
    "C::ConfigMgr::ReadConfig(S)",
    "C::ConfigMgr::CreateConfig()",
    "C::ConfigMgr::GetConfig()",
    "C::ConfigMgr::SaveConfig(S) const",
    "C::ConfigMgr::SaveConfigDirect(S)",
    "C::ConfigMgr::Release()",
    "C::ConfigMgr::~ConfigMgr()",
    "C::ConfigNode::Get(S const&) const",
    "C::ConfigNode::Size() const",
    "C::ConfigNode::operator[](int) const",
    "C::ConfigNode::WithAttr(S const&, S const&)",
    "C::ConfigNode::GetAttr(S const&) const",
    "C::ConfigNode::GetString() const",
    "C::ConfigNode::GetString(S&) const",
    "C::ConfigNode::GetBool() const",
    "C::ConfigNode::GetBool(bool&) const",
    "C::ConfigNode::GetInt() const",
    "C::ConfigNode::GetInt(int&) const",
    "C::ConfigNode::SetAttr(S const&, S const&)",
    "C::ConfigNode::SetString(S const&)",
    "C::ConfigNode::SetInt(int)",
    "C::ConfigNode::SetBool(bool)",
    "C::ConfigNode::Delete()",
    "C::ConfigNode::Create(S const&)",
    "C::MymxmlDelete(_mxml_node_s*)",
    "C::XmlFormat(S)",
    "C::XmlRmSpace(",
    "C::XmlHandleLeftBracket(",
    "C::IsXmlLastNodeInOneLine(",
    "C::IsXmlNodeEndStr(",
    "C::XmlAddSpace(",
    "C::InfCfgMakeBakPath(char const*)",
    "C::InfCfgRename(char const*, char const*)",
    "C::IntCfgSaveInner(_mxml_node_s*, char const*)",
    "C::ErrorCode::ErrorCode(int, S, S)",
    "C::ErrorCode::m_errorCode",
    "C::ErrorCode::m_hasInit",
    "C::ErrorCode::GetErrorCode()",
    "C::ErrorCode::LoadConfigFile()",
    "C::ErrorCode::GetMessageTemp() const",
    "C::ErrorCode::GetMessage(S const&) const",
    "C::ErrorCode::PrintMessage(S const&) const",
    "C::ErrorCode::PrintErrorCode(int, S const&)",
    "C::ErrorCode::GetMessage(std::vector<std::pair<int, S>>&, S&)",
    "C::Format(S const&, S const&)",
};

TEST(CliSymbolsTest, PlainNamesAreFound)
{
    lib::Open();
    std::vector<std::string> missing;
    for (const char *name : kPlain) {
        if (lib::Lookup(name) == nullptr) {
            missing.emplace_back(name);
        }
    }

    EXPECT_THAT(missing, IsEmpty());
    EXPECT_EQ(lib::Global<uint32_t>("g_cliRefuseActionMismatch"), 0u);
}

TEST(CliSymbolsTest, ClassesAreFoundWithTheirSignatures)
{
    lib::Open();
    const std::map<std::string, std::string> &found = CliNames();

    std::vector<std::string> missing;
    for (const std::string signature : kSignatures) {
        const auto at = found.lower_bound(signature);
        const bool open = signature.back() == '(' || signature.back() == ' ';
        if (at == found.end() || (open ? at->first.rfind(signature, 0) != 0 : at->first != signature)) {
            missing.push_back(signature);
        }
    }
    EXPECT_THAT(missing, IsEmpty());
}

TEST(CliSymbolsTest, HelpersOfTheClientSide)
{
    lib::Open();
    const CliFunction<bool(std::string)> secure("IsCmdStrSecurity(S)");
    const CliFunction<int(std::string)> count("CliUserNameCntStrToInt(S)");

    EXPECT_TRUE(secure("show disk_info disk_id=3"));
    EXPECT_FALSE(secure(""));
    for (const char each : std::string("|;&$><`\\!\n\r\"")) {
        EXPECT_FALSE(secure(std::string("a") + each + "b")) << static_cast<int>(each);
    }
    for (int each = 1; each < 256; each++) {
        const char letter = static_cast<char>(each);
        EXPECT_EQ(secure(std::string(1, letter)), std::strchr("|;&$><`\\!\n\r\"", letter) == nullptr) << each;
    }
    EXPECT_EQ(count("17"), 17);
    EXPECT_EQ(count("-3"), -3);
    EXPECT_EQ(count("x"), 0);
    EXPECT_EQ(count(""), 0);
    EXPECT_EQ(count("99999999999"), 0);
    EXPECT_EQ(count("012"), 12);
}

} // namespace
