// See trace_catalogue.h.
#include "trace_catalogue.h"

#include <cctype>
#include <cstddef>

namespace krvtest {

namespace {

// clang-format off
const std::vector<TracePoint> points = {
    // number, kind, least level, function, words fixed by the contract, message
    {1000, "ENTRY", 3, "openGatewayConnection", true, "API.openGatewayConnection(port=%d, &gwTokPtr=0x%p, &protoColVersion=0x%p"},
    {1001, "ENTRY", 3, "openRemoteGatewayConnection", true, "API.openRemoteGatewayConnection(hostname=%s, port=%d, &gwTokPtr=0x%p, &protoColVersion=0x%p"},
    {1002, "EXIT", 3, "openRemoteGatewayConnection", false, "API.openRemoteGatewayConnection(hostname=%s, port=%d, &gwTokPtr=0x%p, &protoColVersion=0x%p) rc=%d"},
    {1003, "EXIT", 3, "openGatewayConnection", false, "API.openGatewayConnection(port=%d, &gwTokPtr=0x%p, &protoColVersion=0x%p) rc=%d"},
    {1004, "ENTRY", 3, "closeGatewayConnection", false, "API.closeGatewayConnection(&gwTokPtr=%p)"},
    {1005, "*EXC*", 1, "closeGatewayConnection", true, "API.closeGatewayConnection(&gwTokPtr=%p) Null gateway token Pointer"},
    {1005, "*EXC*", 1, "closeGatewayConnection", true, "API.closeGatewayConnection(gwTokPtr=%p) Null gateway token"},
    {1006, "EXIT", 3, "closeGatewayConnection", false, "API.closeGatewayConnection(&gwTokPtr=%p) rc=%d"},
    {1007, "ENTRY", 3, "closeAllGatewayConnections", false, "API.closeAllGatewayConnections()"},
    {1008, "EXIT", 3, "closeAllGatewayConnections", false, "API.closeAllGatewayConnections() rc=%d"},
    {1009, "ENTRY", 3, "getResourceGroupIds", false, "API.getResourceGroupIds(gwTok=%p, &resGrpIdRSPtr=%p)"},
    {1010, "DEBUG", 4, "getResourceGroupIds", false, "API.getResourceGroupIds() result set pointer (%p)"},
    {1011, "DEBUG", 4, "getResourceGroupIds", false, "API.getResourceGroupIds() result set buffer pointer (%p)"},
    {1012, "*EXC*", 1, "getResourceGroupIds", false, "API.getResourceGroupIds(gwTok=%p) Null gateway token"},
    {1012, "*EXC*", 1, "getResourceGroupIds", false, "API.getResourceGroupIds(&resGrpIdRSPtr=%p) Null result set pointer"},
    {1012, "*EXC*", 1, "getResourceGroupIds", true, "API.getResourceGroupIds(gwTok=%p) resultSetBuf is NULL. Connection may have gone."},
    {1013, "EVENT", 2, "getResourceGroupIds", true, "API.getResourceGroupIds Removing GatewayToken %p due to comms failure %d"},
    {1014, "EXIT", 3, "getResourceGroupIds", false, "API.getResourceGroupIds(gwTok=%p, &resGrpIdRSPtr=%p) rc=%d"},
    {1015, "ENTRY", 3, "getStatIdsByStatGroupId", false, "API.getStatIdsByStatGroupId(gwTok=%p, providerIdsPtr=%p, &statIdRSPtr=%p)"},
    {1016, "DEBUG", 4, "getStatIdsByStatGroupId", false, "API.getStatIdsByStatGroupId() result set pointer (%p)"},
    {1017, "*EXC*", 1, "getStatIdsByStatGroupId", false, "API.getStatIdsByStatGroupId(gwTok=%p) Null gateway token"},
    {1017, "*EXC*", 1, "getStatIdsByStatGroupId", false, "API.getStatIdsByStatGroupId(providerIdsPtr=%p) Null query argument"},
    {1017, "*EXC*", 1, "getStatIdsByStatGroupId", false, "API.getStatIdsByStatGroupId(&statIdRSPtr=%p) Null result set pointer"},
    {1017, "*EXC*", 1, "getStatIdsByStatGroupId", true, "API.getStatIdsByStatGroupId(gwTok=%p) resultSetBuf is NULL. Connection may have gone."},
    {1018, "EVENT", 2, "getStatIdsByStatGroupId", true, "API.getStatIdsByStatGroupId Removing GatewayToken %p due to comms failure %d"},
    {1019, "EXIT", 3, "getStatIdsByStatGroupId", false, "API.getStatIdsByStatGroupId(gwTok=%p, providerIdsPtr=%p, &statIdRSPtr=%p) rc=%d"},
    {1020, "ENTRY", 3, "getStatIds", false, "API.getStatIds(gwTok=%p, &statIdRSPtr=%p)"},
    {1021, "DEBUG", 4, "getStatIds", false, "API.getStatIds() result set pointer (%p)"},
    {1022, "*EXC*", 1, "getStatIds", false, "API.getStatIds(gwTok=%p) Null gateway token"},
    {1022, "*EXC*", 1, "getStatIds", false, "API.getStatIds(&statIdRSPtr=%p) Null result set pointer"},
    {1022, "*EXC*", 1, "getStatIds", true, "API.getStatIds(gwTok=%p) resultSetBuf is NULL. Connection may have gone."},
    {1023, "EVENT", 2, "getStatIds", true, "API.getStatIds Removing GatewayToken %p due to comms failure %d"},
    {1024, "EXIT", 3, "getStatIds", false, "API.getStatIds(gwTok=%p, &statIdRSPtr=%p) rc=%d"},
    {1025, "ENTRY", 3, "getStats", false, "API.getStats(gwTok=%p, &statRSPtr=%p)"},
    {1026, "DEBUG", 4, "getStats", false, "API.getStats() result set pointer (%p)"},
    {1027, "*EXC*", 1, "getStats", false, "API.getStats(gwTok=%p) Null gateway token"},
    {1027, "*EXC*", 1, "getStats", false, "API.getStats(&statRSPtr=%p) Null result set pointer"},
    {1027, "*EXC*", 1, "getStats", true, "API.getStats(gwTok=%p) resultSetBuf is NULL. Connection may have gone."},
    {1028, "EVENT", 2, "getStats", true, "API.getStats Removing GatewayToken %p due to comms failure %d"},
    {1029, "EXIT", 3, "getStats", false, "API.getStats(gwTok=%p, &statRSPtr=%p) rc=%d"},
    {1030, "ENTRY", 3, "getStatsByStatId", false, "API.getStatsByStatId(gwTok=%p, statIdsPtr=%p, &statRSPtr=%p)"},
    {1031, "DEBUG", 4, "getStatsByStatId", false, "API.getStatsByStatId() result set pointer (%p)"},
    {1032, "*EXC*", 1, "getStatsByStatId", false, "API.getStatsByStatId(gwTok=%p) Null gateway token"},
    {1032, "*EXC*", 1, "getStatsByStatId", false, "API.getStatsByStatId(statIdsPtr=%p) Null query argument"},
    {1032, "*EXC*", 1, "getStatsByStatId", false, "API.getStatsByStatId(&statRSPtr=%p) Null result set pointer"},
    {1032, "*EXC*", 1, "getStatsByStatId", true, "API.getStatsByStatId(gwTok=%p) resultSetBuf is NULL. Connection may have gone."},
    {1033, "EVENT", 2, "getStatsByStatId", true, "API.getStatsByStatId Removing GatewayToken %p due to comms failure %d"},
    {1034, "EXIT", 3, "getStatsByStatId", false, "API.getStatsByStatId(gwTok=%p, statIdsPtr=%p, &statRSPtr=%p) rc=%d"},
    {1035, "ENTRY", 3, "getStatsByStatGroupId", false, "API.getStatsByStatGroupId(gwTok=%p, providerIdPtr=%p, &statRSPtr=%p)"},
    {1036, "DEBUG", 4, "getStatsByStatGroupId", false, "API.getStatsByStatGroupId() result set pointer (%p)"},
    {1037, "*EXC*", 1, "getStatsByStatGroupId", false, "API.getStatsByStatGroupId(gwTok=%p) Null gateway token"},
    {1037, "*EXC*", 1, "getStatsByStatGroupId", false, "API.getStatsByStatGroupId(providerIdPtr=%p) Null query argument"},
    {1037, "*EXC*", 1, "getStatsByStatGroupId", false, "API.getStatsByStatGroupId(&statRSPtr=%p) Null result set pointer"},
    {1037, "*EXC*", 1, "getStatsByStatGroupId", true, "API.getStatsByStatGroupId(gwTok=%p) resultSetBuf is NULL. Connection may have gone."},
    {1038, "EVENT", 2, "getStatsByStatGroupId", true, "API.getStatsByStatGroupId Removing GatewayToken %p due to comms failure %d"},
    {1039, "EXIT", 3, "getStatsByStatGroupId", false, "API.getStatsByStatGroupId(gwTok=%p, providerIdPtr=%p, &statRSPtr=%p) rc=%d"},
    {1040, "ENTRY", 3, "getIdQuery", false, "API.getIdQuery(rsPtr=%p, &idQueryStringPtr=%p)"},
    {1041, "*EXC*", 1, "getIdQuery", false, "API.getIdQuery() Malloc failed for %d bytes"},
    {1041, "*EXC*", 1, "getIdQuery", false, "API.getIdQuery(rsPtr=%p) Supplied result set token is NULL"},
    {1041, "*EXC*", 1, "getIdQuery", false, "API.getIdQuery(&idQueryStringPtr=%p) Supplied pointer is NULL"},
    {1041, "*EXC*", 1, "getIdQuery", true, "API.getIdQuery Resultset does not contain recognised content"},
    {1042, "EXIT", 3, "getIdQuery", true, "API.getIdQuery(rsPtr=%p) goodIdCount=%d rc=%d"},
    {1043, "ENTRY", 3, "getFirstIdInternal", false, "stapi_krv_impl.getFirstIdInternal(rsPtr=%p,idDataPtr=%p)"},
    {1044, "DEBUG", 4, "getFirstIdInternal", true, "stapi_krv_impl.getFirstIdInternal Processing query header %d of %d. Resultset=%p, Datacursor=%p, queryElementLen=%d, queryElementPtr=%p, queryElementRC=%d"},
    {1045, "EVENT", 2, "getFirstIdInternal", true, "stapi_krv_impl.getFirstIdInternal(rsPtr=%p,idDataPtr=%p) Found negative queryElementRC(%d)"},
    {1046, "DEBUG", 4, "getFirstIdInternal", true, "stapi_krv_impl.getFirstIdInternal Processing queryIndex=%d, elementResultIndex=%d. Resultset=%p, dataCursor=%p, idLen=%d"},
    {1047, "DEBUG", 4, "getFirstIdInternal", true, "stapi_krv_impl.getFirstIdInternal End of subset queryIndex=%d. Resultset=%p"},
    {1049, "EXIT", 3, "getFirstIdInternal", true, "stapi_krv_impl.getFirstIdInternal() endOfResults=%d krvStatRc=%d"},
    {1050, "ENTRY", 3, "getNextIdInternal", false, "stapi_krv_impl.getNextIdInternal(rsPtr=%p,idDataPtr=%p)"},
    {1051, "DEBUG", 4, "getNextIdInternal", true, "stapi_krv_impl.getNextIdInternal No getFirstId() called on Resultset=%p. Datacursor=%p"},
    {1052, "DEBUG", 4, "getNextIdInternal", true, "stapi_krv_impl.getNextIdInternal Processing query header %d of %d. Resultset=%p, Datacursor=%p, queryElementLen=%d, queryElementPtr=%p, queryElementRC=%d"},
    {1053, "EVENT", 2, "getNextIdInternal", true, "stapi_krv_impl.getNextIdInternal(rsPtr=%p,idDataPtr=%p) Found negative queryElementRC(%d)"},
    {1054, "DEBUG", 4, "getNextIdInternal", true, "stapi_krv_impl.getNextIdInternal Processing queryIndex=%d, elementResultIndex=%d. Resultset=%p, dataCursor=%p, idLen=%d"},
    {1055, "DEBUG", 4, "getNextIdInternal", true, "stapi_krv_impl.getNextIdInternal End of subset queryIndex=%d. Resultset=%p"},
    {1057, "EXIT", 3, "getNextIdInternal", false, "stapi_krv_impl.getNextIdInternal() endOfResults=%d krvStatRc=%d"},
    {1058, "ENTRY", 3, "getFirstStatInternal", false, "stapi_krv_impl.getFirstStatInternal(rsPtr=%p,statDataPtr=%p)"},
    {1059, "DEBUG", 4, "getFirstStatInternal", true, "stapi_krv_impl.getFirstStatInternal Processing query header %d of %d. Resultset=%p, Datacursor=%p, queryElementLen=%d, queryElementPtr=%p, queryElementRC=%d"},
    {1060, "DEBUG", 4, "getFirstStatInternal", true, "stapi_krv_impl.getFirstStatInternal Caching new query element details. Resultset=%p, Datacursor=%p, queryElementLen=%d, queryElementPtr=%p, queryElementRC=%d"},
    {1061, "DEBUG", 4, "getFirstStatInternal", true, "stapi_krv_impl.getFirstStatInternal Processing queryIndex=%d, elementResultIndex=%d. Resultset=%p, dataCursor=%p, statIdLen=%d"},
    {1062, "DEBUG", 4, "getFirstStatInternal", true, "stapi_krv_impl.getFirstStatInternal End of subset queryIndex=%d. Resultset=%p"},
    {1063, "EXIT", 3, "getFirstStatInternal", true, "stapi_krv_impl.getFirstStatInternal() last=%d rc=%d"},
    {1064, "ENTRY", 3, "getNextStatInternal", false, "stapi_krv_impl.getNextStatInternal(rsPtr=%p,statDataPtr=%p)"},
    {1065, "DEBUG", 4, "getNextStatInternal", true, "stapi_krv_impl.getNextStatInternal No getFirstStat() called on Resultset=%p. Datacursor=%p"},
    {1066, "DEBUG", 4, "getNextStatInternal", true, "stapi_krv_impl.getNextStatInternal Processing query header %d of %d. Resultset=%p, Datacursor=%p, queryElementLen=%d, queryElementPtr=%p, queryElementRC=%d"},
    {1067, "EVENT", 2, "getNextStatInternal", true, "stapi_krv_impl.getNextStatInternal(rsPtr=%p,statDataPtr=%p) Found negative queryElementRC(%d)"},
    {1068, "DEBUG", 4, "getNextStatInternal", true, "stapi_krv_impl.getNextStatInternal Processing queryIndex=%d, elementResultIndex=%d. Resultset=%p, dataCursor=%p, statIdLen=%d"},
    {1069, "DEBUG", 4, "getNextStatInternal", true, "stapi_krv_impl.getNextStatInternal End of subset queryIndex=%d. Resultset=%p"},
    {1071, "EXIT", 3, "getNextStatInternal", false, "stapi_krv_impl.getNextStatInternal() last=%d rc=%d"},
    {1072, "ENTRY", 3, "copyResultSet", false, "API.copyResultSet(srcRs=%p,&tarRsPtr=%p)"},
    {1073, "*EXC*", 1, "copyResultSet", false, "API.copyResultSet(srcRs=%p) Supplied result set token is NULL"},
    {1073, "*EXC*", 1, "copyResultSet", false, "API.copyResultSet(&tarRsPtr=%p) Supplied result set pointer is NULL"},
    {1074, "*EXC*", 1, "copyResultSet", true, "API.copyResultSet(srcRs=%p) resultSetBuf is NULL - no data to copy"},
    {1074, "*EXC*", 1, "copyResultSet", true, "API.copyResultSet Resultset does not contain recognised content"},
    {1075, "*EXC*", 1, "copyResultSet", true, "API.copyResultSet() Invalid source resultset krvStatRc=d"},
    {1076, "EVENT", 2, "copyResultSet", true, "API.copyResultSet(srcRs=%p,&tarRsPtr=%p) Created result set token(%p)"},
    {1077, "DEBUG", 4, "copyResultSet", true, "API.copyResultSet Called malloc for %d bytes. rc=%p"},
    {1078, "*EXC*", 1, "copyResultSet", true, "API.copyResultSet() Malloc failed for %d bytes"},
    {1079, "EXIT", 3, "copyResultSet", false, "API.copyResultSet(srcRs=%p,&tarRsPtr=%p) rc=%d"},
    {1080, "ENTRY", 3, "freeResultSet", false, "API.freeResultSet(&rsPtr=%p)"},
    {1081, "*EXC*", 1, "freeResultSet", true, "API.freeResultSet(&rsPtr=%p) Supplied result set pointer is NULL"},
    {1082, "*EXC*", 1, "freeResultSet", true, "API.freeResultSet(&rsPtr=%p) Supplied result set token is NULL"},
    {1083, "*EXC*", 1, "freeResultSet", true, "API.freeResultSet(rsPtr=%p) Cannot free result sets with owner=%d"},
    {1084, "DEBUG", 4, "freeResultSet", true, "API.freeResultSet() free result set buffer storage (%p)"},
    {1085, "*EXC*", 1, "freeResultSet", true, "API.freeResultSet(rsPtr=%p) Result set buffer pointer was already null"},
    {1087, "EXIT", 3, "freeResultSet", false, "API.freeResultSet(&rsPtr=%p) rc=%d"},
    {1088, "ENTRY", 3, "getStatsAPIVersion", true, "API.getStatsAPIVersion(&apiVersPtr=%p)"},
    {1089, "*EXC*", 1, "getStatsAPIVersion", true, "API.getStatsAPIVersion() Supplied pointer is NULL"},
    {1090, "EXIT", 3, "getStatsAPIVersion", false, "API.getStatsAPIVersion(&apiVersPtr=%p) rc=%d"},
    {1091, "ENTRY", 3, "getAPITraceLevel", false, "API.getAPITraceLevel(&traceState=%p)"},
    {1092, "*EXC*", 1, "getAPITraceLevel", true, "API.getAPITraceLevel() Supplied pointer is NULL"},
    {1093, "EXIT", 3, "getAPITraceLevel", false, "API.getAPITraceLevel(&traceState=%p) rc=%d"},
    {1094, "ENTRY", 3, "setAPITraceLevel", true, "API.setAPITraceLevel(traceState=%d) current trace level=%d"},
    {1095, "*EXC*", 1, "setAPITraceLevel", true, "API.setAPITraceLevel() Supplied trace state value %d was invalid"},
    {1096, "EXIT", 3, "setAPITraceLevel", true, "API.setAPITraceLevel(traceState=%d) new trace level=%d rc=%d"},
    {1097, "ENTRY", 3, "setAPITraceFile", true, "API.setAPITraceFile(traceFile=%p) current trace destination=%s"},
    {1098, "DEBUG", 4, "setAPITraceFile", true, "API.setAPITraceFile() Trace file switched to new destination. Filename=%s"},
    {1099, "DEBUG", 4, "setAPITraceFile", true, "API.setAPITraceFile() Trace file destination is unchanged. Filename=%s"},
    {1100, "*EXC*", 1, "setAPITraceFile", true, "API.setAPITraceFile(%s) file append failed with errno=%d. Trace file destination is unchanged. Filename=%s"},
    {1100, "*EXC*", 1, "setAPITraceFile", false, "API.setAPITraceFile() Failed to allocate %d bytes. Trace file destination is unchanged. Filename=%s"},
    {1101, "EXIT", 3, "setAPITraceFile", true, "API.setAPITraceFile(traceFile=%p) new trace destination=%s rc=%d"},
    {1102, "ENTRY", 3, "dumpResultSet", false, "API.dumpResultSet(rsPtr=%p)"},
    {1103, "*EXC*", 1, "dumpResultSet", false, "API.dumpResultSet(rsPtr=%p) Supplied result set token is NULL"},
    {1104, "*EXC*", 1, "dumpResultSet", true, "API.dumpResultSet(rsPtr=%p) resultSetBuf is NULL - no data to dump"},
    {1104, "*EXC*", 1, "dumpResultSet", true, "API.dumpResultSet Resultset does not contain recognised content"},
    {1105, "EXIT", 3, "dumpResultSet", false, "API.dumpResultSet(rsPtr=%p) rc=%d"},
    {1106, "ENTRY", 3, "dumpState", false, "API.dumpState()"},
    {1107, "EXIT", 3, "dumpState", false, "API.dumpState() rc=%d"},
    {1108, "ENTRY", 3, "dup2ASCIIString", false, "stapi_krv_impl.dup2ASCIIString(in=%p, &out=%p)"},
    {1109, "*EXC*", 1, "dup2ASCIIString", true, "stapi_krv_impl.dup2ASCIIString() supplied input data pointer was NULL or overlength"},
    {1111, "DEBUG", 4, "dup2ASCIIString", true, "stapi_krv_impl.dup2ASCIIString() called malloc for %d bytes. rc=%p"},
    {1112, "*EXC*", 1, "dup2ASCIIString", false, "stapi_krv_impl.dup2ASCIIString() Failed to allocate %d bytes"},
    {1113, "DEBUG", 4, "dup2ASCIIString", true, "stapi_krv_impl.dup2ASCIIString() using memcpy() on writePtr(%p) bytes(%d)"},
    {1115, "EXIT", 3, "dup2ASCIIString", false, "stapi_krv_impl.dup2ASCIIString(in=%p, &out=%p) rc=%d"},
    {1116, "ENTRY", 3, "dup2NativeString", false, "stapi_krv_impl.dup2NativeString(in=%p, &out=%p)"},
    {1117, "*EXC*", 1, "dup2NativeString", true, "stapi_krv_impl.dup2NativeString() supplied input data pointer was NULL or overlength"},
    {1119, "DEBUG", 4, "dup2NativeString", true, "stapi_krv_impl.dup2NativeString() called strdup for %d bytes. rc=0x%p"},
    {1120, "*EXC*", 1, "dup2NativeString", false, "stapi_krv_impl.dup2NativeString() Failed to allocate %d bytes"},
    {1121, "DEBUG", 4, "dup2NativeString", true, "stapi_krv_impl.dup2NativeString() about to memcpy for %d bytes. "},
    {1123, "EXIT", 3, "dup2NativeString", false, "stapi_krv_impl.dup2NativeString(in=%p, &out=%p) rc=%d"},
    {1124, "*EXC*", 1, "stapiInit", true, "stapi_krv_impl.stapiInit() Initialization of krvstats API Gateway Token List has failed. rc=%d"},
    {1128, "EVENT", 2, "getResourceGroupIds", true, "API.getResourceGroupIds Getting Resource Group Ids"},
    {1129, "EVENT", 2, "getStatIdsByStatGroupId", true, "API.getStatIdsByStatGroupId Getting Stat Ids for Stat Group Ids %s"},
    {1130, "EVENT", 2, "getStatIds", true, "API.getStatIds Getting Stat Ids from the Gateway"},
    {1130, "EVENT", 2, "getStats", true, "API.getStats Getting all Stats from the Gateway Daemon"},
    {1131, "EVENT", 2, "getStatsByStatId", true, "API.getStatsByStatId Getting Stats for Stat Ids %s"},
    {1132, "EVENT", 2, "getStatsByStatGroupId", true, "API.getStatsByStatGroupId Getting Stats for Stat Group Ids %s"},
    {1133, "EVENT", 2, "closeGatewayConnection", true, "API.closeGatewayConnection Closed Gateway connection for token %p"},
    {1134, "EVENT", 2, "closeAllGatewayConnections", true, "API.closeAllGatewayConnections Closed all Gateway connections"},
    {1135, "EVENT", 2, "copyResultSet", true, "API.copyResultSet Copied resultsetbuffer from %p to %p"},
    {1136, "EVENT", 2, "freeResultSet", true, "API.freeResultSetFreed result set %p"},
    {1137, "EVENT", 2, "getFirstIdInternal", true, "stapi_krv_impl.getFirstIdInternal Successfully retrieved first Id from resultset %p"},
    {1138, "EVENT", 2, "getNextIdInternal", true, "stapi_krv_impl.getNextIdInternal Successfully retrieved the next Id from resultset %p"},
    {1139, "EVENT", 2, "getFirstStatInternal", true, "stapi_krv_impl.getFirstStatInternal Successfully retrieved first stat from resultset %p"},
    {1140, "EVENT", 2, "getNextStatInternal", true, "stapi_krv_impl.getNextStatInternal Successfully retrieved the next stat from resultset %p"},
    {1141, "EVENT", 2, "getIdQuery", true, "API.getIdQuery Created query string %s from results in result set token %p"},
    {1142, "*EXC*", 1, "openRemoteGatewayConnection", false, "API.openRemoteGatewayConnection(port=%d) Port is invalid"},
    {1142, "*EXC*", 1, "openRemoteGatewayConnection", false, "API.openRemoteGatewayConnection(&gwTokPtr=%p) Null gateway token Pointer"},
    {1142, "*EXC*", 1, "openRemoteGatewayConnection", false, "API.openRemoteGatewayConnection(&protoColVersion=%p) Null protocol version pointer"},
    {1142, "*EXC*", 1, "openRemoteGatewayConnection", false, "API.openRemoteGatewayConnection(hostname=%p) Null host name"},
    {1142, "*EXC*", 1, "openRemoteGatewayConnection", true, "API.openRemoteGatewayConnection(gwTokPtr=0x%p) New gateway token has NULL protocolVersion pointer"},
    {1142, "EVENT", 2, "openRemoteGatewayConnection", true, "API.openRemoteGatewayConnection(&protoColVersion=0x%p) created String for proto@0x%p"},
    {1143, "ENTRY", 3, "setCallDeadline", false, "API.setCallDeadline(milliseconds=%d)"},
    {1144, "*EXC*", 1, "setCallDeadline", false, "API.setCallDeadline() Supplied deadline %d was invalid"},
    {1145, "EXIT", 3, "setCallDeadline", false, "API.setCallDeadline(milliseconds=%d) rc=%d"},
    {1146, "ENTRY", 3, "interruptGatewayConnection", false, "API.interruptGatewayConnection(gwTok=%p)"},
    {1147, "*EXC*", 1, "interruptGatewayConnection", false, "API.interruptGatewayConnection(gwTok=%p) Null gateway token"},
    {1148, "EXIT", 3, "interruptGatewayConnection", false, "API.interruptGatewayConnection(gwTok=%p) rc=%d"},
    {1150, "ENTRY", 3, "getFirstId", false, "API.getFirstId(rsPtr=%p, idDataPtr=%p)"},
    {1151, "*EXC*", 1, "getFirstId", false, "API.getFirstId(rsPtr=%p) Supplied result set token is NULL"},
    {1151, "*EXC*", 1, "getFirstId", false, "API.getFirstId(idDataPtr=%p) Supplied record pointer is NULL"},
    {1151, "*EXC*", 1, "getFirstId", true, "API.getFirstId Resultset does not contain id data"},
    {1152, "EXIT", 3, "getFirstId", false, "API.getFirstId(rsPtr=%p, idDataPtr=%p) rc=%d"},
    {1153, "ENTRY", 3, "getNextId", false, "API.getNextId(rsPtr=%p, idDataPtr=%p)"},
    {1154, "*EXC*", 1, "getNextId", false, "API.getNextId(rsPtr=%p) Supplied result set token is NULL"},
    {1154, "*EXC*", 1, "getNextId", false, "API.getNextId(idDataPtr=%p) Supplied record pointer is NULL"},
    {1154, "*EXC*", 1, "getNextId", true, "API.getNextId Resultset does not contain id data"},
    {1155, "EXIT", 3, "getNextId", false, "API.getNextId(rsPtr=%p, idDataPtr=%p) rc=%d"},
    {1156, "ENTRY", 3, "getFirstStat", false, "API.getFirstStat(rsPtr=%p, statDataPtr=%p)"},
    {1157, "*EXC*", 1, "getFirstStat", false, "API.getFirstStat(rsPtr=%p) Supplied result set token is NULL"},
    {1157, "*EXC*", 1, "getFirstStat", false, "API.getFirstStat(statDataPtr=%p) Supplied record pointer is NULL"},
    {1157, "*EXC*", 1, "getFirstStat", true, "API.getFirstStat Resultset does not contain statistics"},
    {1158, "EXIT", 3, "getFirstStat", false, "API.getFirstStat(rsPtr=%p, statDataPtr=%p) rc=%d"},
    {1159, "ENTRY", 3, "getNextStat", false, "API.getNextStat(rsPtr=%p, statDataPtr=%p)"},
    {1160, "*EXC*", 1, "getNextStat", false, "API.getNextStat(rsPtr=%p) Supplied result set token is NULL"},
    {1160, "*EXC*", 1, "getNextStat", false, "API.getNextStat(statDataPtr=%p) Supplied record pointer is NULL"},
    {1160, "*EXC*", 1, "getNextStat", true, "API.getNextStat Resultset does not contain statistics"},
    {1161, "EXIT", 3, "getNextStat", false, "API.getNextStat(rsPtr=%p, statDataPtr=%p) rc=%d"},
    {2000, "ENTRY", 3, "createGatewayToken", false, "stapi_krv_gwytok.createGatewayToken(&gwTokPtr=%p, hostname=%s, port=%d)"},
    {2001, "EXIT", 3, "createGatewayToken", false, "stapi_krv_gwytok.createGatewayToken(&gwTokPtr=%p, hostname=%s, port=%d) rc=%d"},
    {2002, "ENTRY", 3, "openStatsSocket", true, "stapi_krv_gwytok.openStatsSocket(gwTokPtr=%p) Attempting to connect to %s:%d"},
    {2003, "EVENT", 2, "openStatsSocket", true, "stapi_krv_gwytok.openStatsSocket() Connected to Gateway %s:%u - socketDescriptor(%d)"},
    {2004, "*EXC*", 1, "openStatsSocket", true, "stapi_krv_gwytok.openStatsSocket() Failed to connect to Gateway %s:%u, connect rc = %d"},
    {2005, "EXIT", 3, "openStatsSocket", true, "stapi_krv_gwytok.openStatsSocket(gwTokPtr=%p, hostname=%s, port=%d) rc=%d"},
    {2006, "ENTRY", 3, "verifyGatewayToken", false, "stapi_krv_gwytok.verifyGatewayToken(&gwTokPtr=%p)"},
    {2007, "*EXC*", 1, "verifyGatewayToken", true, "stapi_krv_gwytok.verifyGatewayToken(&gwTokPtr=%p) Gateway token not found - findRc=%d"},
    {2008, "EXIT", 3, "verifyGatewayToken", false, "stapi_krv_gwytok.verifyGatewayToken(&gwTokPtr=%p) rc=%d"},
    {2009, "ENTRY", 3, "deleteGatewayToken", false, "stapi_krv_gwytok.deleteGatewayToken(&gwTokPtr=%p, lockRequired=%d)"},
    {2010, "DEBUG", 4, "deleteGatewayToken", true, "stapi_krv_gwytok.deleteGatewayToken(&gwTokPtr=%p) Free gateway token(%p) "},
    {2011, "DEBUG", 4, "deleteGatewayToken", true, "stapi_krv_gwytok.deleteGatewayToken(&gwTokPtr=%p) Freed gateway token(%p) "},
    {2012, "EXIT", 3, "deleteGatewayToken", false, "stapi_krv_gwytok.deleteGatewayToken(&gwTokPtr=%p, lockRequired=%d) rc=%d"},
    {2013, "ENTRY", 3, "deleteGatewayTokens", false, "stapi_krv_gwytok.deleteGatewayTokens()"},
    {2014, "*EXC*", 1, "deleteGatewayTokens", true, "stapi_krv_gwytok.deleteGatewayTokens() GTL iteration has hit RUNAWAY limit %d....."},
    {2015, "EXIT", 3, "deleteGatewayTokens", true, "stapi_krv_gwytok.deleteGatewayTokens() Entries deleted=%d rc=%d"},
    {2016, "ENTRY", 3, "dumpGatewayTokens", false, "stapi_krv_gwytok.dumpGatewayTokens()"},
    {2017, "*EXC*", 1, "dumpGatewayTokens", true, "stapi_krv_gwytok.dumpGatewayTokens() Gateway Token List iteration has hit RUNAWAY limit %d....."},
    {2018, "EXIT", 3, "dumpGatewayTokens", false, "stapi_krv_gwytok.dumpGatewayTokens() rc=%d"},
    {2019, "ENTRY", 3, "chainGatewayToken", false, "stapi_krv_gwytok.chainGatewayToken(newToken=%p)"},
    {2020, "*EXC*", 1, "chainGatewayToken", true, "stapi_krv_gwytok.chainGatewayToken() GTL state is corrupt - head(%p) tail (%p)"},
    {2021, "*EXC*", 1, "chainGatewayToken", true, "stapi_krv_gwytok.chainGatewayToken() Chain request was for a null token"},
    {2022, "EXIT", 3, "chainGatewayToken", false, "stapi_krv_gwytok.chainGatewayToken(newToken=%p) rc=%d"},
    {2023, "ENTRY", 3, "findGatewayToken", false, "stapi_krv_gwytok.findGatewayToken(targetToken=%p, &parentTokenPtr=%p)"},
    {2024, "*EXC*", 1, "findGatewayToken", true, "stapi_krv_gwytok.findGatewayToken() GTL iteration has hit RUNAWAY limit %d....."},
    {2025, "DEBUG", 4, "findGatewayToken", true, "stapi_krv_gwytok.findGatewayToken() Target token not found. GTL entries(%d) head(%p) last(%p)"},
    {2026, "DEBUG", 4, "findGatewayToken", true, "stapi_krv_gwytok.findGatewayToken() Target token found at GTL Entry(%d)"},
    {2027, "*EXC*", 1, "findGatewayToken", true, "stapi_krv_gwytok.findGatewayToken() GTL state is corrupt - head(%p) tail (%p)"},
    {2028, "*EXC*", 1, "findGatewayToken", true, "stapi_krv_gwytok.findGatewayToken() Target was a null token"},
    {2029, "EXIT", 3, "findGatewayToken", false, "stapi_krv_gwytok.findGatewayToken(targetToken=%p, &parentTokenPtr=%p) rc=%d"},
    {2030, "ENTRY", 3, "initGTL", true, "stapi_krv_gwytok.initGTL()"},
    {2031, "EXIT", 3, "initGTL", true, "stapi_krv_gwytok.initGTL() initLockRc=%d, rc=%d"},
    {2032, "*EXC*", 1, "verifyGatewayToken", true, "stapi_krv_gwytok.verifyGatewayToken PID mismatch: currentPid=%d, owningPid=%d"},
    {2033, "EVENT", 2, "createGatewayToken", true, "stapi_krv_gwytok.createGatewayToken(&gwTokPtr=%p) %s"},
    {2033, "*EXC*", 1, "verifyGatewayToken", true, "stapi_krv_gwytok.verifyGatewayToken TID mismatch: currentTid=%d, owningTid=%d"},
    {2034, "EVENT", 2, "deleteGatewayTokens", true, "stapi_krv_gwytok.deleteGatewayTokens(indexToken=%p) GTL entry %4.4d: %s"},
    {2035, "*EXC*", 1, "formatGatewayToken", false, "stapi_krv_gwytok.formatGatewayToken(gwTokPtr=%p, formattedToken=%p) function received a null parameter"},
    {2036, "*EXC*", 1, "createGatewayToken", true, "stapi_krv_gwytok.createGatewayToken Creation of resultset failed rc=%d"},
    {2037, "*EXC*", 1, "deleteGatewayToken", true, "stapi_krv_gwytok.deleteGatewayToken Unable to delete ResultSet. rc=%d"},
    {2038, "DEBUG", 4, "createGatewayToken", true, "stapi_krv_gwytok.createGatewayToken Called malloc for %d bytes. rc=%p"},
    {2039, "*EXC*", 1, "createGatewayToken", true, "stapi_krv_gwytok.createGatewayToken Failed to allocate %d bytes"},
    {2040, "DEBUG", 4, "createGatewayToken", false, "stapi_krv_gwytok.createGatewayToken Called malloc for %d bytes. rc=%p"},
    {2041, "*EXC*", 1, "createGatewayToken", true, "stapi_krv_gwytok.createGatewayToken Failed to allocate %d bytes."},
    {2042, "EVENT", 2, "createGatewayToken", true, "stapi_krv_gwytok.createGatewayToken Removing GatewayToken %p due to comms failure %d"},
    {2043, "DEBUG", 4, "deleteGatewayToken", true, "stapi_krv_gwytok.deleteGatewayToken About to free resultSetBuffer (%p)"},
    {2044, "DEBUG", 4, "deleteGatewayToken", true, "stapi_krv_gwytok.deleteGatewayToken About to free protocolVersion String (%p)"},
    {2100, "ENTRY", 3, "addIdStr", false, "stapi_krv_resultsetbuffer.addIdStr(&bufWPtr=%p,idString=%p)"},
    {2101, "*EXC*", 1, "addIdStr", true, "stapi_krv_resultsetbuffer.addIdStr(&bufWPtr=%p,idString=%p) function received a null parameter"},
    {2102, "DEBUG", 4, "addIdStr", true, "stapi_krv_resultsetbuffer.addIdStr Before writing id length, write cursor=%p"},
    {2103, "DEBUG", 4, "addIdStr", true, "stapi_krv_resultsetbuffer.addIdStr Wrote length value %u to address %p, which reads back as %u"},
    {2104, "DEBUG", 4, "addIdStr", true, "stapi_krv_resultsetbuffer.addIdStr Wrote string %s len %u to address %p, first char reads back as %c"},
    {2107, "EXIT", 3, "addIdStr", false, "stapi_krv_resultsetbuffer.addIdStr(&bufWPtr=%p,idString=%p) rc=%d"},
    {2108, "ENTRY", 3, "addInteger", false, "stapi_krv_resultsetbuffer.addInteger(&bufWPtr=%p,rsInt=%d)"},
    {2109, "*EXC*", 1, "addInteger", true, "stapi_krv_resultsetbuffer.addInteger(&bufWPtr=%p) function received a null parameter"},
    {2110, "EXIT", 3, "addInteger", false, "stapi_krv_resultsetbuffer.addInteger(&bufWPtr=%p,rsInt=%d) rc=%d"},
    {2111, "ENTRY", 3, "addChars", false, "stapi_krv_resultsetbuffer.addChars(&bufWPtr=%p,textPtr=%p,charCount=%d)"},
    {2112, "*EXC*", 1, "addChars", false, "stapi_krv_resultsetbuffer.addChars(&bufWPtr=%p,textPtr=%p,charCount=%d) function received a null parameter"},
    {2113, "DEBUG", 4, "addChars", true, "stapi_krv_resultsetbuffer.addChars() using memcpy() on writeCursor(%p) charCount(%d)"},
    {2115, "EXIT", 3, "addChars", false, "stapi_krv_resultsetbuffer.addChars(&bufWPtr=%p,textPtr=%p,charCount=%d) rc=%d"},
    {2116, "ENTRY", 3, "addPlatformChars", false, "stapi_krv_resultsetbuffer.addPlatformChars(&bufWPtr=%p,textPtr=%p,charCount=%d)"},
    {2117, "*EXC*", 1, "addPlatformChars", false, "stapi_krv_resultsetbuffer.addPlatformChars(&bufWPtr=%p,textPtr=%p,charCount=%d) function received a null parameter"},
    {2118, "DEBUG", 4, "addPlatformChars", false, "stapi_krv_resultsetbuffer.addPlatformChars() using memcpy() on writeCursor(%p) charCount(%d)"},
    {2119, "EXIT", 3, "addPlatformChars", false, "stapi_krv_resultsetbuffer.addPlatformChars(&bufWPtr=%p,textPtr=%p,charCount=%d) rc=%d"},
    {2120, "ENTRY", 3, "addTerminator", false, "stapi_krv_resultsetbuffer.addTerminator(writeCursor=%p)"},
    {2121, "*EXC*", 1, "addTerminator", true, "stapi_krv_resultsetbuffer.addTerminator(writeCursor=%p) function received a null parameter"},
    {2122, "EXIT", 3, "addTerminator", false, "stapi_krv_resultsetbuffer.addTerminator(writeCursor=%p) rc=%d"},
    {2123, "ENTRY", 3, "checkTerminator", false, "stapi_krv_resultsetbuffer.checkTerminator(dataCursor=%p, isRSTermPtr=%p)"},
    {2124, "*EXC*", 1, "checkTerminator", true, "stapi_krv_resultsetbuffer.checkTerminator(dataCursor=%p, isRSTermPtr=%p) function received a null parameter"},
    {2125, "DEBUG", 4, "checkTerminator", true, "stapi_krv_resultsetbuffer.checkTerminator(dataCursor=%p, *isRSTermPtr=%d)"},
    {2126, "EXIT", 3, "checkTerminator", false, "stapi_krv_resultsetbuffer.checkTerminator(dataCursor=%p, isRSTermPtr=%p) rc=%d"},
    {2127, "ENTRY", 3, "createResultSet", false, "stapi_krv_resultsetbuffer.createResultSet(&newRsTokPtr=%p, eyecatcher=%p, owner=%x)"},
    {2128, "*EXC*", 1, "createResultSet", false, "stapi_krv_resultsetbuffer.createResultSet(&newRsTokPtr=%p, eyecatcher=%p) function received a null parameter"},
    {2128, "*EXC*", 1, "createResultSet", false, "stapi_krv_resultsetbuffer.createResultSet Owner %x was invalid"},
    {2129, "DEBUG", 4, "createResultSet", true, "stapi_krv_resultsetbuffer.createResultSet Called malloc for %d bytes. rc=%p"},
    {2130, "*EXC*", 1, "createResultSet", true, "stapi_krv_resultsetbuffer.createResultSet Failed to allocate %d bytes"},
    {2131, "DEBUG", 4, "createResultSet", true, "stapi_krv_resultsetbuffer.createResultSet Called malloc for %d bytes. rc=%p"},
    {2132, "EXIT", 3, "createResultSet", false, "stapi_krv_resultsetbuffer.createResultSet(&newRsTokPtr=%p, eyecatcher=%p, owner=%x) rc=%d"},
    {2133, "ENTRY", 3, "deleteResultSet", false, "stapi_krv_resultsetbuffer.deleteResultSet(&rsPtr=%p)"},
    {2134, "*EXC*", 1, "deleteResultSet", false, "stapi_krv_resultsetbuffer.deleteResultSet(&rsPtr=%p) Supplied result set pointer is NULL"},
    {2134, "*EXC*", 1, "deleteResultSet", false, "stapi_krv_resultsetbuffer.deleteResultSet(&rsPtr=%p) Supplied result set token is NULL"},
    {2135, "DEBUG", 4, "deleteResultSet", true, "stapi_krv_resultsetbuffer.deleteResultSet Free result set verifiedQueryString(%p)"},
    {2136, "DEBUG", 4, "deleteResultSet", true, "stapi_krv_resultsetbuffer.deleteResultSet Free result set token(%p)"},
    {2137, "DEBUG", 4, "deleteResultSet", true, "stapi_krv_resultsetbuffer.deleteResultSet Freed result set token(%p)"},
    {2138, "EXIT", 3, "deleteResultSet", false, "stapi_krv_resultsetbuffer.deleteResultSet(&rsPtr=%p) rc=%d"},
    {2139, "ENTRY", 3, "dumpResultSetInternal", false, "stapi_krv_resultsetbuffer.dumpResultSetInternal(rsPtr=%p)"},
    {2140, "EXIT", 3, "dumpResultSetInternal", true, "stapi_krv_resultsetbuffer.dumpResultSetInternal(rsPtr=%p) bytes dumped=%d rc=%d"},
    {2141, "ENTRY", 3, "verifyAPIResultSetTokenOwner", false, "stapi_krv_resultsetbuffer.verifyAPIResultSetToken(rsPtr=%p)"},
    {2142, "*EXC*", 1, "verifyAPIResultSetTokenOwner", true, "stapi_krv_resultsetbuffer.verifyAPIResultSetToken PID mismatch: currentPid=%x, owningPid=%x"},
    {2143, "*EXC*", 1, "verifyAPIResultSetTokenOwner", true, "stapi_krv_resultsetbuffer.verifyAPIResultSetToken TID mismatch: currentTid=%x, owningTid=%x"},
    {2144, "EXIT", 3, "verifyAPIResultSetTokenOwner", false, "stapi_krv_resultsetbuffer.verifyAPIResultSetToken(rsPtr=%p) rc=%d"},
    {2200, "ENTRY", 3, "statProtocolVer", false, "stapi_krv_statcomms.statProtocolVer(gwTokPtr=%p, reasons=%p)"},
    {2201, "DEBUG", 4, "statProtocolVer", true, "stapi_krv_statcomms.statProtocolVer Successfully init'd admin request"},
    {2202, "DEBUG", 4, "statProtocolVer", true, "stapi_krv_statcomms.statProtocolVer Successfully got the protocol version from the Gateway"},
    {2203, "DEBUG", 4, "statProtocolVer", true, "stapi_krv_statcomms.statProtocolVer Called malloc for %d bytes. rc=%p"},
    {2204, "*EXC*", 1, "statProtocolVer", true, "stapi_krv_statcomms.statProtocolVerFailed to allocate %d bytes."},
    {2204, "*EXC*", 1, "statProtocolVer", false, "stapi_krv_statcomms.statProtocolVer Bad protocol version, length=%d"},
    {2205, "EXIT", 3, "statProtocolVer", false, "stapi_krv_statcomms.statProtocolVer(gwTokPtr=%p, reasons=%p) rc=%d"},
    {2206, "ENTRY", 3, "statComms", false, "stapi_krv_statcomms.statComms(socketDesc=%d, queryType=%s, *buffer=%p, *bufferLen=%d, reasons=%p)"},
    {2207, "EXIT", 3, "statComms", false, "stapi_krv_statcomms.statComms(socketDesc=%d, queryType=%s, *buffer=%p, *bufferLen=%d, reasons=%p) rc=%d"},
    {2208, "ENTRY", 3, "statCommsString", false, "stapi_krv_statcomms.statCommsString(socketDesc=%d, queryType=%s, queryString=%p, *buffer=%p, *bufferLen=%d, reasons=%p)"},
    {2209, "DEBUG", 4, "statCommsString", true, "stapi_krv_statcomms.statCommsString Successfully init'd the Admin Request"},
    {2210, "DEBUG", 4, "statCommsString", true, "stapi_krv_statcomms.statCommsString Successfully called the Gateway for Stats"},
    {2211, "DEBUG", 4, "statCommsString", true, "stapi_krv_statcomms.statCommsString Successfully called the Gateway for IDs"},
    {2212, "DEBUG", 4, "statCommsString", true, "stapi_krv_statcomms.statCommsString Free request callData %p"},
    {2213, "EXIT", 3, "statCommsString", false, "stapi_krv_statcomms.statCommsString(socketDesc=%d, queryType=%s, queryString=%p, *buffer=%p, *bufferLen=%d, reasons=%p) rc=%d"},
    {2214, "ENTRY", 3, "getInitAdminRequest", false, "stapi_krv_statcomms.getInitAdminRequest(socketDesc=%d, admin=%p, reasons=%p)"},
    {2215, "EXIT", 3, "getInitAdminRequest", false, "stapi_krv_statcomms.getInitAdminRequest(socketDesc=%d, admin=%p, reasons=%p) rc=%d"},
    {2216, "ENTRY", 3, "calculateCallLength", false, "stapi_krv_statcomms.calculateCallLength(invokeAction=%p)"},
    {2217, "EXIT", 3, "calculateCallLength", false, "stapi_krv_statcomms.calculateCallLength(invokeAction=%p) rc=%d"},
    {2218, "ENTRY", 3, "calculateGetAttrCallLength", false, "stapi_krv_statcomms.calculateGetAttrCallLength(attributeName=%p)"},
    {2219, "EXIT", 3, "calculateGetAttrCallLength", false, "stapi_krv_statcomms.calculateGetAttrCallLength(attributeName=%p) rc=%d"},
    {2220, "ENTRY", 3, "parseStatsData", false, "stapi_krv_statcomms.parseStatsData(rawData=%p, &resultSetBuffer=%p, &resultSetBufferLen=%p)"},
    {2221, "DEBUG", 4, "parseStatsData", true, "stapi_krv_statcomms.parseStatsData received %d responses from the Gateway"},
    {2222, "DEBUG", 4, "parseStatsData", true, "stapi_krv_statcomms.parseStatsData reading %d stats for result %d"},
    {2223, "EXIT", 3, "parseStatsData", false, "stapi_krv_statcomms.parseStatsData(rawData=%p, &resultSetBuffer=%p, &resultSetBufferLen=%p) rc=%d"},
    {2224, "ENTRY", 3, "parseIdsData", false, "stapi_krv_statcomms.parseIdsData(rawData=%p, &resultSetBuffer=%p, &resultSetBufferLen=%p)"},
    {2225, "DEBUG", 4, "parseIdsData", true, "stapi_krv_statcomms.parseIdsData received %d responses from the Gateway"},
    {2226, "DEBUG", 4, "parseIdsData", true, "stapi_krv_statcomms.parseIdsData Query rc=%d or (hex=%8.8X)"},
    {2227, "DEBUG", 4, "parseIdsData", true, "stapi_krv_statcomms.parseIdsData reading %d IDs for result %d"},
    {2228, "DEBUG", 4, "parseIdsData", true, "stapi_krv_statcomms.parseIdsData Bad query id element(%d), move on to next one"},
    {2229, "EXIT", 3, "parseIdsData", false, "stapi_krv_statcomms.parseIdsData(rawData=%p, &resultSetBuffer=%p, &resultSetBufferLen=%p) rc=%d"},
    {2230, "DATA", 4, "statCommsString", true, "stapi_krv_statcomms.statCommsString data=%p len=%d stopword=%8.8X"},
    {2231, "DEBUG", 4, "parseStatsData", true, "stapi_krv_statcomms.parseStatsData block type=%2.8X "},
    {2232, "DEBUG", 4, "parseStatsData", true, "stapi_krv_statcomms.parseStatsData chunklength=%d "},
    {2233, "DEBUG", 4, "parseStatsData", true, "stapi_krv_statcomms.parseStatsData statistic ID length=%d "},
    {2234, "DEBUG", 4, "parseStatsData", true, "stapi_krv_statcomms.parseStatsData written %d of %d bytes. Remaining data = %d bytes "},
    {2235, "DEBUG", 4, "parseStatsData", true, "stapi_krv_statcomms.parseStatsData written %d bytes. Remaining data = %d bytes "},
    {2236, "DEBUG", 4, "parseStatsData", true, "stapi_krv_statcomms.parseStatsData block type=%2.8X "},
    {2237, "DEBUG", 4, "parseStatsData", true, "stapi_krv_statcomms.parseStatsData written %d bytes. Remaining data = %d bytes "},
    {2238, "DEBUG", 4, "parseStatsData", true, "stapi_krv_statcomms.parseStatsData written %d bytes.  "},
    {2239, "DEBUG", 4, "parseStatsData", true, "stapi_krv_statcomms.parseStatsData statistic data length=%d "},
    {2240, "DEBUG", 4, "parseStatsData", true, "stapi_krv_statcomms.parseStatsData running total of parsed data = %d bytes "},
    {2241, "DEBUG", 4, "parseStatsData", true, "stapi_krv_statcomms.parseStatsData parsed data total = %d bytes "},
    {2242, "DEBUG", 4, "statProtocolVer", false, "stapi_krv_statcomms.statProtocolVer Free request callData %p"},
    {2244, "ENTRY", 3, "reallocResultsSetBuffer", true, "stapi_krv_statcomms.reallocResultsSetBuffer(*resultSetBuffer=%p, *resultSetBufferLen=%d, *buffer=%p, totaldatawritten=%d)"},
    {2245, "EXIT", 3, "reallocResultsSetBuffer", true, "stapi_krv_statcomms.reallocResultsSetBuffer(*resultSetBuffer=%p, *resultSetBufferLen=%d, *buffer=%p) rc=%d)"},
    {2300, "ENTRY", 3, "commsResourceGroupsIds", false, "stapi_krv_statquery.commsResourceGroupsIds(socketDesc=%d, *buffer=%p, *bufferLen=%d)"},
    {2301, "EXIT", 3, "commsResourceGroupsIds", false, "stapi_krv_statquery.commsResourceGroupsIds(socketDesc=%d, *buffer=%p, *bufferLen=%d) krvstatRc=%d"},
    {2302, "ENTRY", 3, "commsStatIdsByStatGroupId", false, "stapi_krv_statquery.commsStatIdsByStatGroupId(socketDesc=%d, *buffer=%p, *bufferLen=%d, ids=%p)"},
    {2303, "EXIT", 3, "commsStatIdsByStatGroupId", false, "stapi_krv_statquery.commsStatIdsByStatGroupId(socketDesc=%d, *buffer=%p, *bufferLen=%d, ids=%p) krvStatRc=%d"},
    {2304, "ENTRY", 3, "commsStatIds", false, "stapi_krv_statquery.commsStatIds(socketDesc=%d, *buffer=%p, *bufferLen=%d)"},
    {2305, "EXIT", 3, "commsStatIds", false, "stapi_krv_statquery.commsStatIds(socketDesc=%d, *buffer=%p, *bufferLen=%d) krvstatRc=%d"},
    {2306, "ENTRY", 3, "commsStatsByStatId", false, "stapi_krv_statquery.commsStatsByStatId(socketDesc=%d, *buffer=%p, *bufferLen=%d, ids=%p)"},
    {2307, "EXIT", 3, "commsStatsByStatId", false, "stapi_krv_statquery.commsStatsByStatId(socketDesc=%d, *buffer=%p, *bufferLen=%d, ids=%p) krvStatRc=%d"},
    {2308, "ENTRY", 3, "commsStatsByStatGroupId", true, "stapi_krv_statquery.commsStatsByStatGroupId(socketDesc=%d, *buffer=%p, *bufferLen, ids=%p)"},
    {2309, "EXIT", 3, "commsStatsByStatGroupId", false, "stapi_krv_statquery.commsStatsByStatGroupId(socketDesc=%d, *buffer=%p, *bufferLen=%d, ids=%p) krvStatRc=%d"},
    {2310, "ENTRY", 3, "commsStats", false, "stapi_krv_statquery.commsStats(socketDesc=%d, *buffer=%p, *bufferLen=%d)"},
    {2311, "EXIT", 3, "commsStats", true, "stapi_krv_statquery.commsStats(socketDesc=%d, *buffer=%p, *bufferLen=%d) krvstatRc=%d"},
    {2312, "DATA", 4, "commsResourceGroupsIds", false, "stapi_krv_statquery.commsResourceGroupsIds data=%p len=%d stopword=%8.8X"},
    {2313, "DATA", 4, "commsStatIdsByStatGroupId", true, "stapi_krv_statquery.commsStatIdsByStatGroupId data=%p len=%d stopword=%8.8X"},
    {2314, "DATA", 4, "commsStatIds", false, "stapi_krv_statquery.commsStatIds data=%p len=%d stopword=%8.8X"},
    {2315, "DATA", 4, "commsStatsByStatId", false, "stapi_krv_statquery.commsStatsByStatId data=%p len=%d stopword=%8.8X"},
    {2316, "DATA", 4, "commsStatsByStatGroupId", false, "stapi_krv_statquery.commsStatsByStatGroupId data=%p len=%d stopword=%8.8X"},
    {2317, "DATA", 4, "commsStats", false, "stapi_krv_statquery.commsStats data=%p len=%d stopword=%8.8X"},
    {3000, "ENTRY", 3, "connectToGateway", false, "stapi_krv_gwycon.connectToGateway(port=%d, hostname=%s, socketDescriptorPtr=%p)"},
    {3001, "*EXC*", 1, "connectToGateway", true, "stapi_krv_gwycon.connectToGateway() Unable to create a socket: %s(%d)"},
    {3002, "DEBUG", 4, "connectToGateway", true, "stapi_krv_gwycon.connectToGateway() Created socket: %d"},
    {3002, "DEBUG", 4, "connectToGateway", true, "stapi_krv_gwycon.connectToGateway() Set socket to KeepAlive or NoDelay failed: %d"},
    {3003, "DEBUG", 4, "connectToGateway", true, "stapi_krv_gwycon.connectToGateway() Connected to Gateway %s:%u"},
    {3004, "DEBUG", 4, "connectToGateway", true, "stapi_krv_gwycon.connectToGateway() Flowed Handshake to the Gateway"},
    {3005, "*EXC*", 1, "connectToGateway", true, "stapi_krv_gwycon.connectToGateway() Handshake flows failed rc=%d errno=%s gwyRc=%d authRc=%d"},
    {3006, "*EXC*", 1, "connectToGateway", true, "stapi_krv_gwycon.connectToGateway() Unable to connect to Gateway: %s(%d)"},
    {3007, "EXIT", 3, "connectToGateway", false, "stapi_krv_gwycon.connectToGateway(port=%d, hostname=%s, socketDescriptorPtr=%p) connectRc=%d"},
    {3008, "ENTRY", 3, "closeConnection", false, "stapi_krv_gwycon.closeConnection(socketDescriptorPtr=%p)"},
    {3009, "EXIT", 3, "closeConnection", true, "stapi_krv_gwycon.closeConnection(socketDescriptorPtr=%p) closeConnectionRc=%d"},
    {3010, "ENTRY", 3, "authorizeConnection", false, "stapi_krv_gwycon.authorizeConnection(socketDescriptor=%d, reasons=%p)"},
    {3011, "EXIT", 3, "authorizeConnection", false, "stapi_krv_gwycon.authorizeConnection(socketDescriptor=%d, reasons=%p) rc=%d"},
    {3012, "*EXC*", 1, "getHostInfo", true, "stapi_krv_gwycon.getHostInfo() Unable to resolve host (%s:%s): %s(%d)"},
    {3013, "DEBUG", 4, "connectToGateway", true, "stapi_krv_gwycon.connectToGateway Creating socket for family %d, type %d, protocol %d"},
    {3014, "DEBUG", 4, "waitForConnection", true, "stapi_krv_gwycon.waitForConnection Calling select() on socketdescriptor %d"},
    {3015, "*EXC*", 1, "waitForConnection", true, "stapi_krv_gwycon.waitForConnection socket %d connect() failed error %d"},
    {3016, "*EXC*", 1, "waitForConnection", true, "stapi_krv_gwycon.waitForConnection socket %d connect timed out"},
    {3017, "*EXC*", 1, "waitForConnection", true, "stapi_krv_gwycon.waitForConnection select call failed with error %d"},
    {3018, "DEBUG", 4, "connectToGateway", true, "stapi_krv_gwycon.connectToGateway() Waiting for connect to complete"},
    {3019, "DEBUG", 4, "connectToGateway", true, "stapi_krv_gwycon.connectToGateway() Set Non-Blocking IOCTL failed with Rc=%d, errno=%d"},
    {3020, "DEBUG", 4, "connectToGateway", true, "stapi_krv_gwycon.connectToGateway() Set Blocking IOCTL failed with Rc=%d, errno=%d"},
    {3101, "*EXC*", 1, "initializeLock", true, "stapi_krv_lock.initializeLock(lockPtr=%p) Lock initialization failed errno=%d"},
    {3104, "*EXC*", 1, "requestLock", true, "stapi_krv_lock.requestLock(lockPtr=%p) Lock not initialized"},
    {3105, "*EXC*", 1, "requestLock", true, "stapi_krv_lock.requestLock(lockPtr=%p) Lock request failed errno=%d"},
    {3108, "*EXC*", 1, "releaseLock", true, "stapi_krv_lock.releaseLock(lockPtr=%p) Lock not initialized"},
    {3109, "*EXC*", 1, "releaseLock", true, "stapi_krv_lock.releaseLock(lockPtr=%p) Lock release failed errno=%d"},
    {3112, "*EXC*", 1, "destroyLock", true, "stapi_krv_lock.destroyLock(lockPtr=%p) Lock not initialized"},
    {3113, "*EXC*", 1, "destroyLock", true, "stapi_krv_lock.destroyLock(lockPtr=%p) Lock destroy failed errno=%d"},
    {3200, "ENTRY", 3, "flowAdminRequest", false, "stapi_krv_socketcomms.flowAdminRequest(socketDesc=%d, request=%p, reasons=%p)"},
    {3201, "DEBUG", 4, "flowAdminRequest", true, "stapi_krv_socketcomms.flowAdminRequest Called malloc for %d bytes. rc=%p"},
    {3202, "*EXC*", 1, "flowAdminRequest", true, "stapi_krv_socketcomms.flowAdminRequestFailed to allocate %d bytes."},
    {3203, "DEBUG", 4, "flowAdminRequest", true, "stapi_krv_socketcomms.flowAdminRequest Called malloc for %d bytes. rc=%p"},
    {3204, "*EXC*", 1, "flowAdminRequest", true, "stapi_krv_socketcomms.flowAdminRequestFailed to allocate %d bytes."},
    {3205, "*EXC*", 1, "flowAdminRequest", true, "stapi_krv_socketcomms.flowAdminRequest Exception occured during request execution"},
    {3206, "*EXC*", 1, "flowAdminRequest", true, "stapi_krv_socketcomms.flowAdminRequest Auth Request returned an error AuthRc=%d"},
    {3206, "*EXC*", 1, "flowAdminRequest", false, "stapi_krv_socketcomms.flowAdminRequest Reply is too short"},
    {3207, "DEBUG", 4, "flowAdminRequest", false, "stapi_krv_socketcomms.flowAdminRequest Free request data %p"},
    {3208, "EXIT", 3, "flowAdminRequest", false, "stapi_krv_socketcomms.flowAdminRequest(socketDesc=%d, request=%p, reasons=%p) rc=%d"},
    {3209, "ENTRY", 3, "flowAuthRequest", false, "stapi_krv_socketcomms.flowAuthRequest(socketDesc=%d, request=%p, reasons=%p)"},
    {3210, "DEBUG", 4, "flowAuthRequest", true, "stapi_krv_socketcomms.flowAuthRequest Called malloc for %d bytes. rc=%p"},
    {3211, "*EXC*", 1, "flowAuthRequest", true, "stapi_krv_socketcomms.flowAuthRequestFailed to allocate %d bytes."},
    {3212, "*EXC*", 1, "flowAuthRequest", true, "stapi_krv_socketcomms.flowAuthRequestAuth_Init request failed rc=%d"},
    {3212, "*EXC*", 1, "flowAuthRequest", false, "stapi_krv_socketcomms.flowAuthRequest Reply is too short"},
    {3213, "DEBUG", 4, "flowAuthRequest", true, "stapi_krv_socketcomms.flowAuthRequest Free request data %p"},
    {3214, "EXIT", 3, "flowAuthRequest", false, "stapi_krv_socketcomms.flowAuthRequest(socketDesc=%d, request=%p, reasons=%p) rc=%d"},
    {3215, "ENTRY", 3, "flowHandshakeRequest", false, "stapi_krv_socketcomms.flowHandshakeRequest(socketDesc=%d, reasons=%p)"},
    {3216, "DEBUG", 4, "flowHandshakeRequest", true, "stapi_krv_socketcomms.flowHandshakeRequest Called malloc for %d bytes. rc=%p"},
    {3217, "*EXC*", 1, "flowHandshakeRequest", true, "stapi_krv_socketcomms.flowHandshakeRequestFailed to allocate %d bytes."},
    {3218, "DEBUG", 4, "flowHandshakeRequest", true, "stapi_krv_socketcomms.flowHandshakeRequest Free handshake data %p"},
    {3219, "EXIT", 3, "flowHandshakeRequest", false, "stapi_krv_socketcomms.flowHandshakeRequest(socketDesc=%d, reasons=%p) rc=%d"},
    {3220, "ENTRY", 3, "flowCloseRequest", false, "stapi_krv_socketcomms.flowCloseRequest(socketDesc=%d, reasons=%p)"},
    {3221, "DEBUG", 4, "flowCloseRequest", true, "stapi_krv_socketcomms.flowCloseRequest Called malloc for %d bytes. rc=%p"},
    {3222, "*EXC*", 1, "flowCloseRequest", true, "stapi_krv_socketcomms.flowCloseRequest Failed to allocate %d bytes."},
    {3223, "DEBUG", 4, "flowCloseRequest", true, "stapi_krv_socketcomms.flowCloseRequest Free close request data %p"},
    {3224, "EXIT", 3, "flowCloseRequest", false, "stapi_krv_socketcomms.flowCloseRequest(socketDesc=%d, reasons=%p) rc=%d"},
    {3225, "ENTRY", 3, "flow", true, "stapi_krv_socketcomms.flow(socketDesc=%d, datalen=%d, &data=%p, requestName=%s, header=%p, reasons=%p)"},
    {3226, "DATA", 4, "flow", true, "stapi_krv_socketcomms.flow data=%p len=%d stopword=%8.8X"},
    {3227, "*EXC*", 1, "flow", true, "stapi_krv_socketcomms.flow No data to flow!!"},
    {3228, "*EXC*", 1, "flow", true, "stapi_krv_socketcomms.flow Unable to write data to socket rc=%d"},
    {3229, "*EXC*", 1, "flow", true, "stapi_krv_socketcomms.flow Unable to send data to Gateway: errno=%d"},
    {3230, "DEBUG", 4, "flow", true, "stapi_krv_socketcomms.flow Called malloc for %d bytes. rc=%p"},
    {3231, "*EXC*", 1, "flow", true, "stapi_krv_socketcomms.flowFailed to allocate %d bytes."},
    {3232, "DEBUG", 4, "flow", true, "stapi_krv_socketcomms.flow Free header data %p"},
    {3233, "DEBUG", 4, "flow", true, "stapi_krv_socketcomms.flow Free call data %p"},
    {3234, "DEBUG", 4, "flow", true, "stapi_krv_socketcomms.flow (re-)malloc call &data %p"},
    {3235, "DEBUG", 4, "flow", true, "stapi_krv_socketcomms.flow Called malloc for %d bytes. rc=%p"},
    {3236, "*EXC*", 1, "flow", true, "stapi_krv_socketcomms.flow Failed to allocate %d bytes."},
    {3237, "DEBUG", 4, "flow", true, "stapi_krv_socketcomms.flow Managed to read in whole response in one go. data=0x%p"},
    {3238, "EXIT", 3, "flow", false, "stapi_krv_socketcomms.flow(socketDesc=%d, datalen=%d, &data=%p, requestName=%s, header=%p, reasons=%p) rc=%d"},
    {3239, "ENTRY", 3, "readFromSocket", false, "stapi_krv_socketcomms.readFromSocket(socketDesc=%d, dataSize=%d, dataBuf=%p)"},
    {3240, "DEBUG", 4, "readFromSocket", true, "stapi_krv_socketcomms.readFromSocket recv(socketDesc=%d, dataSize=%d, dataBuf=%p) readData=%d)"},
    {3241, "DEBUG", 4, "readFromSocket", true, "stapi_krv_socketcomms.readFromSocket recv(socketDesc=%d, dataSize=%d, dataBuf=%p) readData=%d, totaldata=%d)"},
    {3242, "*EXC*", 1, "readFromSocket", true, "stapi_krv_socketcomms.readFromSocket read returned an error code: errno=%d"},
    {3243, "DATA", 4, "readFromSocket", true, "stapi_krv_socketcomms.readFromSocket data=%p len=%d stopword=%8.8X"},
    {3244, "*EXC*", 1, "readFromSocket", true, "stapi_krv_socketcomms.readFromSocket read returned an error code: errno=%d"},
    {3245, "EXIT", 3, "readFromSocket", false, "stapi_krv_socketcomms.readFromSocket(socketDesc=%d, dataSize=%d, dataBuf=%p) rc=%d"},
    {3246, "ENTRY", 3, "populateHeader", false, "stapi_krv_socketcomms.populateHeader(data=%p, req=%p)"},
    {3247, "EXIT", 3, "populateHeader", false, "stapi_krv_socketcomms.populateHeader(data=%p, req=%p)"},
    {3248, "ENTRY", 3, "writeHeader", false, "stapi_krv_socketcomms.writeHeader(req=%p, data=%p)"},
    {3249, "EXIT", 3, "writeHeader", false, "stapi_krv_socketcomms.writeHeader(req=%p, data=%p)"},
    {3250, "EVENT", 2, "flow", true, "stapi_krv_socketcomms.flow Successfully sent and received data with Gateway on socket %d"},
    {3251, "*EXC*", 1, "flow", true, "stapi_krv_socketcomms.flow Bad eyecatcher! Expected=0x%x, actual=0x%x"},
    {3251, "*EXC*", 1, "flow", false, "stapi_krv_socketcomms.flow Bad request name length! Expected=%d, actual=%d"},
};
// clang-format on

const std::vector<ModuleBlock> blocks = {
    {"stapi_krv_impl", 1000, 1161},
    {"stapi_krv_gwytok", 2000, 2044},
    {"stapi_krv_resultsetbuffer", 2100, 2144},
    {"stapi_krv_statcomms", 2200, 2245},
    {"stapi_krv_statquery", 2300, 2317},
    {"stapi_krv_gwycon", 3000, 3020},
    {"stapi_krv_lock", 3100, 3113},
    {"stapi_krv_socketcomms", 3200, 3251},
};

struct Conversion {
    std::string flags; // between "%" and the letter
    char letter = 0;
};

bool hexDigits(const std::string& text, bool upper)
{
    if (text.empty()) return false;
    for (char c : text)
        if (!std::isdigit(static_cast<unsigned char>(c)) && !(upper ? c >= 'A' && c <= 'F' : c >= 'a' && c <= 'f')) return false;
    return true;
}

bool decimalDigits(const std::string& text, std::size_t from)
{
    if (from >= text.size()) return false;
    for (std::size_t i = from; i < text.size(); i++)
        if (!std::isdigit(static_cast<unsigned char>(text[i]))) return false;
    return true;
}

// Whether printf can have made this text from the conversion.
bool canBe(const Conversion& conversion, const std::string& text)
{
    switch (conversion.letter) {
    case 'p':
        return text == "(nil)" || (text.starts_with("0x") && hexDigits(text.substr(2), false));
    case 'd':
        if (conversion.flags == "4.4" && text.size() < 4) return false;
        return decimalDigits(text, text.starts_with("-") ? 1 : 0);
    case 'u':
        return decimalDigits(text, 0);
    case 'x':
        return hexDigits(text, false);
    case 'X':
        return text.size() == 8 && hexDigits(text, true); // all of them print eight digits
    case 'c':
        return text.size() == 1;
    case 's':
        return true;
    default:
        return false;
    }
}

bool matches(const std::string& format, std::size_t at, const std::string& text, std::size_t from)
{
    std::size_t percent = format.find('%', at);
    if (percent == std::string::npos) return text.compare(from, std::string::npos, format, at, std::string::npos) == 0;
    const std::size_t words = percent - at;
    if (text.compare(from, words, format, at, words) != 0) return false;
    from += words;
    std::size_t letter = percent + 1;
    while (letter < format.size() && (std::isdigit(static_cast<unsigned char>(format[letter])) || format[letter] == '.')) letter++;
    const Conversion conversion{format.substr(percent + 1, letter - percent - 1), format[letter]};
    // The text up to each place where the words behind the conversion go on.
    std::size_t next = format.find('%', letter);
    const std::string behind = format.substr(letter + 1, next == std::string::npos ? next : next - letter - 1);
    if (behind.empty() && next == std::string::npos) return canBe(conversion, text.substr(from));
    for (std::size_t end = text.find(behind, from); end != std::string::npos; end = text.find(behind, end + 1))
        if (canBe(conversion, text.substr(from, end - from)) && matches(format, letter + 1, text, end)) return true;
    return false;
}

} // namespace

const std::vector<TracePoint>& traceCatalogue()
{
    return points;
}

const std::vector<ModuleBlock>& moduleBlocks()
{
    return blocks;
}

bool messageMatches(const TracePoint& point, const std::string& message)
{
    return matches(point.message, 0, message, 0);
}

const TracePoint* findTracePoint(const TraceLine& line)
{
    for (const TracePoint& point : points)
        if (point.number == line.number && line.kind == point.kind && messageMatches(point, line.message)) return &point;
    return nullptr;
}

std::string moduleOf(const TracePoint& point)
{
    const std::string message = point.message;
    return message.starts_with("API.") ? "stapi_krv_impl" : message.substr(0, message.find('.'));
}

} // namespace krvtest
