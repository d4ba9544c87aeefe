# source/c/stapi_krv_impl.cpp
# A walk may read a word behind the end of the set.
/^WireReader readerFrom(/,/^}/ s/length - offset/length + 4 - offset/
