#include "task/wait_reactor.h"

#include <cerrno>

// The part of the reactor's interface that needs descriptors or signals, which this reactor has
// not.

namespace qov {

namespace {

int unsupported() {
  errno = ENOTSUP;
  return -1;
}

}  // namespace

int WaitReactor::current_info(ACE_HANDLE, size_t&) {
  return unsupported();
}

int WaitReactor::set_sig_handler(ACE_Sig_Handler*) {
  return unsupported();
}

int WaitReactor::register_handler(ACE_Event_Handler*, ACE_Reactor_Mask) {
  return unsupported();
}

int WaitReactor::register_handler(ACE_HANDLE, ACE_Event_Handler*, ACE_Reactor_Mask) {
  return unsupported();
}

int WaitReactor::register_handler(ACE_HANDLE, ACE_HANDLE, ACE_Event_Handler*, ACE_Reactor_Mask) {
  return unsupported();
}

int WaitReactor::register_handler(const ACE_Handle_Set&, ACE_Event_Handler*, ACE_Reactor_Mask) {
  return unsupported();
}

int WaitReactor::register_handler(int, ACE_Event_Handler*, ACE_Sig_Action*, ACE_Event_Handler**,
                                  ACE_Sig_Action*) {
  return unsupported();
}

int WaitReactor::register_handler(const ACE_Sig_Set&, ACE_Event_Handler*, ACE_Sig_Action*) {
  return unsupported();
}

int WaitReactor::remove_handler(ACE_Event_Handler*, ACE_Reactor_Mask) {
  return unsupported();
}

int WaitReactor::remove_handler(ACE_HANDLE, ACE_Reactor_Mask) {
  return unsupported();
}

int WaitReactor::remove_handler(const ACE_Handle_Set&, ACE_Reactor_Mask) {
  return unsupported();
}

int WaitReactor::remove_handler(int, ACE_Sig_Action*, ACE_Sig_Action*, int) {
  return unsupported();
}

int WaitReactor::remove_handler(const ACE_Sig_Set&) {
  return unsupported();
}

int WaitReactor::suspend_handler(ACE_Event_Handler*) {
  return unsupported();
}

int WaitReactor::suspend_handler(ACE_HANDLE) {
  return unsupported();
}

int WaitReactor::suspend_handler(const ACE_Handle_Set&) {
  return unsupported();
}

int WaitReactor::suspend_handlers() {
  return unsupported();
}

int WaitReactor::resume_handler(ACE_Event_Handler*) {
  return unsupported();
}

int WaitReactor::resume_handler(ACE_HANDLE) {
  return unsupported();
}

int WaitReactor::resume_handler(const ACE_Handle_Set&) {
  return unsupported();
}

int WaitReactor::resume_handlers() {
  return unsupported();
}

int WaitReactor::resumable_handler() {
  return 0;
}

bool WaitReactor::uses_event_associations() {
  return false;
}

int WaitReactor::schedule_wakeup(ACE_Event_Handler*, ACE_Reactor_Mask) {
  return unsupported();
}

int WaitReactor::schedule_wakeup(ACE_HANDLE, ACE_Reactor_Mask) {
  return unsupported();
}

int WaitReactor::cancel_wakeup(ACE_Event_Handler*, ACE_Reactor_Mask) {
  return unsupported();
}

int WaitReactor::cancel_wakeup(ACE_HANDLE, ACE_Reactor_Mask) {
  return unsupported();
}

void WaitReactor::max_notify_iterations(int) {}

int WaitReactor::max_notify_iterations() {
  return unsupported();
}

ACE_Event_Handler* WaitReactor::find_handler(ACE_HANDLE) {
  errno = ENOTSUP;
  return nullptr;
}

int WaitReactor::handler(ACE_HANDLE, ACE_Reactor_Mask, ACE_Event_Handler**) {
  return unsupported();
}

int WaitReactor::handler(int, ACE_Event_Handler**) {
  return unsupported();
}

bool WaitReactor::restart() {
  return false;
}

bool WaitReactor::restart(bool) {
  return false;
}

void WaitReactor::requeue_position(int) {}

int WaitReactor::requeue_position() {
  return unsupported();
}

int WaitReactor::mask_ops(ACE_Event_Handler*, ACE_Reactor_Mask, int) {
  return unsupported();
}

int WaitReactor::mask_ops(ACE_HANDLE, ACE_Reactor_Mask, int) {
  return unsupported();
}

int WaitReactor::ready_ops(ACE_Event_Handler*, ACE_Reactor_Mask, int) {
  return unsupported();
}

int WaitReactor::ready_ops(ACE_HANDLE, ACE_Reactor_Mask, int) {
  return unsupported();
}

int WaitReactor::timer_queue(ACE_Timer_Queue*) {
  return unsupported();
}

void WaitReactor::dump() const {}

}  // namespace qov
