/**
 * @file drm_module_loader.h
 * @brief Starts and stops the framework's own modules in the order of one table. For one thread; takes no lock.
 */
#ifndef DRM_MODULE_LOADER_H
#define DRM_MODULE_LOADER_H

#include <stdint.h>

#include "infrastructure/common/corvane_export.h"

CORVANE_BEGIN_DECLS

#define DRM_SUB_MODULE_NAME_SIZE 128

/** A module. 144 bytes. */
typedef struct DrmSubModule {
    char name[DRM_SUB_MODULE_NAME_SIZE];
    uint32_t (*init)(void); /**< 0 is success */
    uint32_t (*fin)(void);  /**< may be null */
} DrmSubModule;

/** @brief Start memory pools, scheduler, diagnostics, trace points. @retval DRM_ERR_FAIL  One failed; none runs. */
CORVANE_NODISCARD CORVANE_API uint32_t DrmFrameworkInit(void) CORVANE_NOEXCEPT;
/** @brief Stop them, last first. @return always 0. */
CORVANE_API uint32_t DrmFrameworkExit(void) CORVANE_NOEXCEPT;
/** @brief Start the modules in order. @retval DRM_ERR_FAIL  One failed; those before it are stopped, last first. */
CORVANE_NODISCARD CORVANE_API uint32_t DrmloadSubModule(DrmSubModule *table, uint32_t count) CORVANE_NOEXCEPT;
/** @brief Stop the modules from @p lastIndex down to the first, whether one fails or not. @param lastIndex -1: none. */
CORVANE_API void DrmUnloadSubModule(DrmSubModule *table, int32_t lastIndex) CORVANE_NOEXCEPT;

CORVANE_END_DECLS

#ifdef __cplusplus
#include <cstddef>
static_assert(sizeof(DrmSubModule) == 144 && offsetof(DrmSubModule, init) == 128 && offsetof(DrmSubModule, fin) == 136);
#endif

#endif
