// The examples of docs/wire-formats.md are what agents are written from: each has to pass the library's own checks.

#include <array>
#include <cstdint>
#include <string>
#include <vector>

#include "data_collect/data_collect_master/DCM_copy/dcm_copy.h"
#include "data_collect/data_collect_master/DCM_query/dcm_array_list.h"
#include "data_collect/data_collect_master/DCM_query/dcm_query.h"
#include "data_collect/data_collect_master/DCM_validate/dcm_validate.h"
#include "data_collect/data_collect_master/dcm_name_maps.h"
#include "support/corvane_fixture.h"
#include "unit/data_collect/dcm_objects.h"

namespace {

class WireFormatsDocTest : public CorvaneTest {
protected:
    /** Every JSON example, in the order of the page. */
    static std::vector<std::string> Examples()
    {
        const std::string page = ReadFile(std::string(CORVANE_TEST_DATA) + "/../docs/wire-formats.md");
        const std::string open = "```json\n";
        std::vector<std::string> examples;
        for (size_t at = page.find(open); at != std::string::npos; at = page.find(open, at)) {
            at += open.size();
            const size_t end = page.find("```", at);
            examples.push_back(page.substr(at, end - at));
            at = end;
        }
        return examples;
    }
    static uint32_t MessageType(const std::string &method)
    {
        for (const QueryMethodNameRow &row : g_queryMethodNameMap) {
            if (method == row.name) {
                return row.messageType;
            }
        }
        return MESSAGE_TYPE_BUTT;
    }
    static void ExpectCopied(uint32_t type, cJSON *result)
    {
        cJSON *disks = cJSON_GetObjectItem(result, "disks");
        ArrayList list = {};
        ASSERT_EQ(ArrayListCreate(&list, DCM_DEVICE_LIST_MAX, g_copyStructMemorySizeMap[type]), 0u);

        EXPECT_EQ(CopyBatchFromJSON(type, disks, list.list), 0u);

        ArrayListDelete(&list);
    }
};

TEST_F(WireFormatsDocTest, EveryExamplePassesTheChecks)
{
    // An answer belongs to the request before it.
    uint32_t type = MESSAGE_TYPE_BUTT;
    std::array<int, MESSAGE_TYPE_BUTT> answers = {};

    for (const std::string &example : Examples()) {
        SCOPED_TRACE(example);
        const CJsonPtr json = dcm_objects::Parse(example);
        const cJSON *method = cJSON_GetObjectItem(json.get(), "method");
        if (method != nullptr) {
            type = MessageType(method->valuestring);
            continue;
        }
        EXPECT_TRUE(IsValidJsonResponseHeader(json.get()));
        if (type < MESSAGE_TYPE_BUTT) {
            cJSON *result = cJSON_GetObjectItem(json.get(), "result");
            EXPECT_TRUE(IsValidResultJson(type, result, g_queryMessageStepMap[type]));
            ExpectCopied(type, result);
            answers[type]++;
        }
    }

    EXPECT_THAT(answers, ::testing::Each(::testing::Ge(1))) << "an example of every answer";
}

} // namespace
