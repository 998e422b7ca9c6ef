// A library of one class, which other_thing compiles with one macro for each change.
#ifndef TESTS_SURFACE_THING_THING_H
#define TESTS_SURFACE_THING_THING_H

struct ThingInside;
#ifdef RETURN_TYPE
using ThingValue = long;
#else
using ThingValue = int;
#endif

class Thing {
 public:
  Thing();
  virtual ~Thing();
#ifdef VIRTUAL_BEFORE
  virtual int before();
#endif
  virtual int first();
#ifdef VIRTUAL_BEHIND
  virtual int behind();
#endif
#ifndef FUNCTION_GONE
  int get() const;
#endif
#ifdef FUNCTION_MORE
  int more() const;
#endif
  ThingValue value() const;

 private:
  ThingInside* inside_;
#ifdef MEMBER_MORE
  int more_ = 0;
#endif
#ifdef MEMBER_TYPE
  double number_ = 0;
#else
  long number_ = 0;
#endif
};

#endif
