// A host replaces these libraries one by one, so each operation has to be found in its own library, by name.

#include <gtest/gtest.h>

#include <dlfcn.h>
#include <map>
#include <string>
#include <vector>

namespace {

const std::map<std::string, std::vector<std::string>> kOperations = {
    {"libnorax.so",
     {"norax_Init", "norax_destory", "norax_get_jiffies", "norax_str_tou64", "do_norax_spinlock_lock",
      "do_norax_spinlock_unlock", "do_norax_tspinlock_trylock", "norax_timer_set_raw", "norax_timer_add",
      "norax_timer_modify", "norax_timer_destroy"}},
    {"libnorlog.so",
     {"norlog_set_file_path_ext", "norlog_init", "norlog_set_backup_num", "norlog_destroy", "norlog",
      "norlog_loglevel_get"}},
    {"libnormm.so",
     {"normm_malloc", "normm_free", "nor_mm_pool_init", "nor_mm_pool_exit", "allocStructure", "freeStructure",
      "createExpStructurePartition", "createContinuousPartition", "deletePartitionByID"}},
    {"libnordiagnose.so",
     {"DBG_DiagnoseAgentInit", "DBG_DiagnoseAgentDestroy", "DBG_RegCmd", "DBG_UnRegCmd", "DBG_UnRegCmdToCLI",
      "DBG_Print", "DBG_PrintBuf", "DBG_ShowUsageAndErrMsg"}},
};

} // namespace

TEST(PlatformExportsTest, EachLibraryHasItsOperations)
{
    for (const auto &[library, operations] : kOperations) {
        void *handle = dlopen((std::string(CORVANE_LIB_DIR "/") + library).c_str(), RTLD_NOW | RTLD_LOCAL);
        ASSERT_NE(handle, nullptr) << dlerror();
        for (const std::string &operation : operations) {
            void *address = dlsym(handle, operation.c_str());
            Dl_info info{};
            ASSERT_NE(address, nullptr) << operation;
            ASSERT_NE(dladdr(address, &info), 0) << operation;
            EXPECT_NE(std::string(info.dli_fname).find(library), std::string::npos)
                << operation << " in " << info.dli_fname;
        }
        (void)dlclose(handle);
    }
}
