// A library that points to a variable that nobody has.
extern int qovTestNowhere;
int* qovTestUnbound = &qovTestNowhere;
