# source/c/stapi_krv_statcomms.cpp
# A reply that ends before the number of ids passes for one without ids.
/const int numIds = /,/putInteger/ s/if (run->reply.spent) refuse(run);//
