# source/c/stapi_krv_statcomms.cpp
# A version text may leave no room for its NUL.
s/protocolVerLength < PROTOCOL_VERSION_SIZE/protocolVerLength <= PROTOCOL_VERSION_SIZE/
