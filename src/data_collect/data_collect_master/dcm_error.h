/**
 * @file dcm_error.h
 * @brief Results of the data collection master. They are errno numbers; 0 is success.
 */
#ifndef DCM_ERROR_H
#define DCM_ERROR_H

#define DCM_OK 0u
#define DCM_ERR_POST 5u           /**< EIO: a request could not be posted, or its answer was no JSON */
#define DCM_ERR_NOT_INIT 11u      /**< EAGAIN: used before initialisation */
#define DCM_ERR_NO_MEMORY 12u     /**< ENOMEM: memory, a semaphore or a thread could not be had */
#define DCM_ERR_NOT_PERMITTED 13u /**< EACCES: a guard row of a strategy map was reached */
#define DCM_ERR_BAD_INPUT 22u     /**< EINVAL: bad argument, a failed check of a disk object, or no connection */
#define DCM_ERR_TRANSFER 32u      /**< EPIPE: a send or a receive failed */
#define DCM_ERR_TOO_LONG 34u      /**< ERANGE: a text does not fit its field */
#define DCM_ERR_SOCKET_OPTION 38u /**< ENOSYS: the time-outs of a socket could not be set */
#define DCM_ERR_BAD_RESPONSE 74u  /**< EBADMSG: a response failed a header or result check */
#define DCM_ERR_ALREADY 114u      /**< EALREADY: already present or running */
#define DCM_ERR_NO_SUCH_DISK 123u /**< ENOMEDIUM: a disk that no agent knows */

#ifdef __cplusplus
#include <cerrno>
static_assert(DCM_ERR_POST == EIO && DCM_ERR_NOT_INIT == EAGAIN && DCM_ERR_NO_MEMORY == ENOMEM);
static_assert(DCM_ERR_NOT_PERMITTED == EACCES && DCM_ERR_BAD_INPUT == EINVAL && DCM_ERR_TRANSFER == EPIPE);
static_assert(DCM_ERR_TOO_LONG == ERANGE && DCM_ERR_SOCKET_OPTION == ENOSYS && DCM_ERR_BAD_RESPONSE == EBADMSG);
static_assert(DCM_ERR_ALREADY == EALREADY && DCM_ERR_NO_SUCH_DISK == ENOMEDIUM);
#endif

#endif
