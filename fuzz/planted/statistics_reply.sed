# source/c/stapi_krv_statcomms.cpp
# Behind a long block of a value a short one is not seen.
/remainingdata -= segmentLength;/,/^    }/ s/type = peekU8(&run->reply);//
