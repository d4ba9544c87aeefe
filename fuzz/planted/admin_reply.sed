# source/c/stapi_krv_socketcomms.cpp
# A reply's name may be longer than what was received of it.
s/replyNameLength < 0 || replyNameLength > nameSize/replyNameLength < 0/
