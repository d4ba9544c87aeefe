# source/c/stapi_krv_socketcomms.cpp
# A message that ends in its middle passes for a whole one.
s/rc = readErrno != 0 ? readErrno : -1;/rc = readErrno; if (rc == 0) break;/
