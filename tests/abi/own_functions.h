/* What the generated functions of the application share with its main program. */
#ifndef OWN_FUNCTIONS_H
#define OWN_FUNCTIONS_H

extern const int ownFunctionCount;

/* Notes that the library called a function of the application, and returns what the library cannot make sense of. */
int ownFunctionCalled(const char* name);

#endif
