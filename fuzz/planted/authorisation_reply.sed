# source/c/stapi_krv_socketcomms.cpp
# A reply that ends before its result passes for consent.
/^int decodeAuthReply(/,/^}/ s/if (body\.spent)/if (body.spent \&\& request->authRc != 0)/
