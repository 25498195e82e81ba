#include "data_collect/data_collect_master/DCM_validate/dcm_check_list.h"

#include "infrastructure/common/corvane_log.h"

void LogCheckListFailure(const char *member) noexcept
{
    CORVANE_LOG(CORVANE_LOG_DEBUG, "DCM", "CheckList validate %s failed.", member);
}

bool FindCheckedMembers(cJSON *json, std::span<const CheckRow> list, std::span<cJSON *> found) noexcept
{
    if (json == nullptr) {
        return false;
    }
    for (size_t i = 0; i < list.size(); i++) {
        cJSON *member = cJSON_GetObjectItem(json, list[i].member);
        if (!list[i].check(member)) {
            LogCheckListFailure(list[i].member);
            return false;
        }
        if (i < found.size()) {
            found[i] = member;
        }
    }
    return true;
}
