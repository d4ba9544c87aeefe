/* Sizes and offsets of every record, as programs compiled long ago have them: 32-bit and 64-bit x86. */
#include <limits.h>
#include <stddef.h>
#include <stdint.h>
#include <stdio.h>

#include "krvstats.h"
#include "stapi_krv_diag.h"
#include "stapi_krv_lock.h"
#include "stapi_krv_requests.h"
#include "stapi_krv_types.h"

struct Claim {
    const char* what;
    size_t actual;
    size_t narrow; /* where pointers have 4 bytes, and doubles are aligned to 4 */
    size_t wide;   /* where pointers have 8 bytes */
};

#define SIZE(record, narrow, wide) \
    { \
        "size of " #record, sizeof(record), narrow, wide \
    }
#define AT(record, field, narrow, wide) \
    { \
#record "." #field, offsetof(record, field), narrow, wide \
    }

static const struct Claim claims[] = {
    SIZE(KRV_GatewayToken_t, 4, 8),
    SIZE(KRV_ResultSetToken_t, 4, 8),

    SIZE(KRV_IdData_t, 28, 40),
    AT(KRV_IdData_t, eyecatcher, 0, 0),
    AT(KRV_IdData_t, queryElementPtr, 8, 8),
    AT(KRV_IdData_t, queryElementLen, 12, 16),
    AT(KRV_IdData_t, queryElementRC, 16, 20),
    AT(KRV_IdData_t, idLen, 20, 24),
    AT(KRV_IdData_t, idPtr, 24, 32),

    SIZE(KRV_StatData_t, 36, 56),
    AT(KRV_StatData_t, eyecatcher, 0, 0),
    AT(KRV_StatData_t, queryElementPtr, 8, 8),
    AT(KRV_StatData_t, queryElementLen, 12, 16),
    AT(KRV_StatData_t, queryElementRC, 16, 20),
    AT(KRV_StatData_t, statIdLen, 20, 24),
    AT(KRV_StatData_t, statIdPtr, 24, 32),
    AT(KRV_StatData_t, statValueLen, 28, 40),
    AT(KRV_StatData_t, statValuePtr, 32, 48),

    SIZE(Internal_ResultSetToken_t, 72, 104),
    AT(Internal_ResultSetToken_t, eyecatcher, 0, 0),
    AT(Internal_ResultSetToken_t, owner, 8, 8),
    AT(Internal_ResultSetToken_t, category, 12, 12),
    AT(Internal_ResultSetToken_t, queryString, 16, 16),
    AT(Internal_ResultSetToken_t, validatedQueryPtr, 20, 24),
    AT(Internal_ResultSetToken_t, rsBuffPtr, 24, 32),
    AT(Internal_ResultSetToken_t, rsBuffLen, 28, 40),
    AT(Internal_ResultSetToken_t, cursor, 32, 48),
    AT(Internal_ResultSetToken_t, queryCount, 36, 56),
    AT(Internal_ResultSetToken_t, queryIndex, 40, 60),
    AT(Internal_ResultSetToken_t, elementResultCount, 44, 64),
    AT(Internal_ResultSetToken_t, elementResultIndex, 48, 68),
    AT(Internal_ResultSetToken_t, owningPid, 52, 72),
    AT(Internal_ResultSetToken_t, owningTid, 56, 80),
    AT(Internal_ResultSetToken_t, cacheElementPtr, 60, 88),
    AT(Internal_ResultSetToken_t, cacheElementLen, 64, 96),
    AT(Internal_ResultSetToken_t, cacheElementRC, 68, 100),

    SIZE(Internal_GatewayToken_t, 48, 72),
    AT(Internal_GatewayToken_t, eyecatcher, 0, 0),
    AT(Internal_GatewayToken_t, portNumber, 8, 8),
    AT(Internal_GatewayToken_t, connStatus, 12, 12),
    AT(Internal_GatewayToken_t, socketDescriptor, 16, 16),
    AT(Internal_GatewayToken_t, connRSPtr, 20, 24),
    AT(Internal_GatewayToken_t, resultSetBuf, 24, 32),
    AT(Internal_GatewayToken_t, resultSetBufLen, 28, 40),
    AT(Internal_GatewayToken_t, owningPid, 32, 44),
    AT(Internal_GatewayToken_t, owningTid, 36, 48),
    AT(Internal_GatewayToken_t, protocolVersion, 40, 56),
    AT(Internal_GatewayToken_t, nextGwyTokPtr, 44, 64),

    SIZE(ReasonCodes, 16, 16),
    AT(ReasonCodes, socketErrno, 0, 0),
    AT(ReasonCodes, gatewayRc, 4, 4),
    AT(ReasonCodes, authRc, 8, 8),
    AT(ReasonCodes, adminRc, 12, 12),

    SIZE(GatewayRequest, 36, 40),
    AT(GatewayRequest, eyecatcher, 0, 0),
    AT(GatewayRequest, flowVersion, 4, 4),
    AT(GatewayRequest, flowType, 8, 8),
    AT(GatewayRequest, messageId, 12, 12),
    AT(GatewayRequest, gatewayRc, 16, 16),
    AT(GatewayRequest, requestTypeLength, 20, 20),
    AT(GatewayRequest, requestType, 24, 24),
    AT(GatewayRequest, security, 28, 32),
    AT(GatewayRequest, datalength, 32, 36),

    SIZE(AuthRequest, 68, 72),
    AT(AuthRequest, header, 0, 0),
    AT(AuthRequest, callType, 36, 40),
    AT(AuthRequest, authRc, 40, 44),
    AT(AuthRequest, activeProtocolMap, 44, 48),
    AT(AuthRequest, serverVersion, 52, 56),
    AT(AuthRequest, protocolDataLength, 56, 60),
    AT(AuthRequest, protocolReturnMap, 60, 64),

    SIZE(AdminRequest, 92, 136),
    AT(AdminRequest, header, 0, 0),
    AT(AdminRequest, callType, 36, 40),
    AT(AdminRequest, adminRc, 40, 44),
    AT(AdminRequest, serverVersion, 44, 48),
    AT(AdminRequest, callInfoLength, 48, 52),
    AT(AdminRequest, clientCountry, 52, 56),
    AT(AdminRequest, clientLanguage, 56, 64),
    AT(AdminRequest, clientVariant, 60, 72),
    AT(AdminRequest, objectName, 64, 80),
    AT(AdminRequest, attributeName, 68, 88),
    AT(AdminRequest, invokeAction, 72, 96),
    AT(AdminRequest, invokeParms, 76, 104),
    AT(AdminRequest, invokeSigs, 80, 112),
    AT(AdminRequest, exceptionFlag, 84, 120),
    AT(AdminRequest, callData, 88, 128),

    SIZE(formatStringType, 292, 292),
    AT(formatStringType, timeStamp, 0, 0),
    AT(formatStringType, pidTid, 3, 3),
    AT(formatStringType, tpid, 21, 21),
    AT(formatStringType, traceType, 29, 29),
    AT(formatStringType, msg, 36, 36),

    SIZE(stapilock, 28, 48), /* a pthread_mutex_t has 24 and 40 bytes */
    AT(stapilock, lock, 0, 0),
    AT(stapilock, initialized, 24, 40),
};

/* The widths that the texts of a record are used with. */
static const struct Claim widths[] = {
    {"eyecatcher of KRV_IdData_t", sizeof(((KRV_IdData_t*)0)->eyecatcher), 8, 8},
    {"eyecatcher of KRV_StatData_t", sizeof(((KRV_StatData_t*)0)->eyecatcher), 8, 8},
    {"eyecatcher of Internal_ResultSetToken_t", sizeof(((Internal_ResultSetToken_t*)0)->eyecatcher), 8, 8},
    {"eyecatcher of Internal_GatewayToken_t", sizeof(((Internal_GatewayToken_t*)0)->eyecatcher), 8, 8},
    {"msg of formatStringType", sizeof(((formatStringType*)0)->msg), 256, 256},
    {"security of GatewayRequest", sizeof(((GatewayRequest*)0)->security), 1, 1},
    {"exceptionFlag of AdminRequest", sizeof(((AdminRequest*)0)->exceptionFlag), 1, 1},
    {"activeProtocolMap of AuthRequest", sizeof(((AuthRequest*)0)->activeProtocolMap), 8, 8},
    {"timeStamp", sizeof timeStamp, 24, 24},
    {"dateBuf", sizeof dateBuf, 10, 10},
    {"ProcessId", sizeof(ProcessId), 4, 4},
    {"ThreadId", sizeof(ThreadId), 4, 8},
};

static int countBroken(const struct Claim* claim, size_t count)
{
    int broken = 0;
    size_t i;
    for (i = 0; i < count; i++) {
        size_t expected = sizeof(void*) == 4 ? claim[i].narrow : claim[i].wide;
        if (claim[i].actual != expected) {
            printf("%s is %lu, not %lu\n", claim[i].what, (unsigned long)claim[i].actual, (unsigned long)expected);
            broken++;
        }
    }
    return broken;
}

int main(void)
{
    int broken = countBroken(claims, sizeof claims / sizeof claims[0]);
    broken += countBroken(widths, sizeof widths / sizeof widths[0]);
    printf("%d broken, pointers of %lu bits\n", broken, (unsigned long)(sizeof(void*) * CHAR_BIT));
    return broken == 0 ? 0 : 1;
}
