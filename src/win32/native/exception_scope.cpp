// CallWithExceptionFilter on x64's table-based structured exceptions. GCC has no __try, so the function that has the
// scope table is written in assembly; __C_specific_handler, which Windows' own __try uses, does the rest.
#include "win32/process.h"

#include <malloc.h>

extern "C" win32::BOOL Win32CallInExceptionScope(void (*call)(void* context), void* context,
                                                 win32::LONG (*filter)(win32::DWORD exceptionCode));

// Stack of the scope's frame, from where rsp stands behind the prologue (which is what the filter gets as the frame):
// 0x00 home space of the called function, 0x20 the caller's filter, 0x30 xmm6 to xmm15, 0xD8 the saved integer
// registers. All nonvolatile registers are put down here, so the caller gets them back even when a frame that was given
// up had no unwind data.
//
// A return address belongs to the scope only when it lies before the scope's end: hence the nop behind the call.
asm(R"(
        .text
        .globl  Win32CallInExceptionScope
        .def    Win32CallInExceptionScope; .scl 2; .type 32; .endef
        .seh_proc Win32CallInExceptionScope
Win32CallInExceptionScope:
        pushq   %rbp
        .seh_pushreg %rbp
        pushq   %rbx
        .seh_pushreg %rbx
        pushq   %rsi
        .seh_pushreg %rsi
        pushq   %rdi
        .seh_pushreg %rdi
        pushq   %r12
        .seh_pushreg %r12
        pushq   %r13
        .seh_pushreg %r13
        pushq   %r14
        .seh_pushreg %r14
        pushq   %r15
        .seh_pushreg %r15
        subq    $0xD8, %rsp
        .seh_stackalloc 0xD8
        movaps  %xmm6, 0x30(%rsp)
        .seh_savexmm %xmm6, 0x30
        movaps  %xmm7, 0x40(%rsp)
        .seh_savexmm %xmm7, 0x40
        movaps  %xmm8, 0x50(%rsp)
        .seh_savexmm %xmm8, 0x50
        movaps  %xmm9, 0x60(%rsp)
        .seh_savexmm %xmm9, 0x60
        movaps  %xmm10, 0x70(%rsp)
        .seh_savexmm %xmm10, 0x70
        movaps  %xmm11, 0x80(%rsp)
        .seh_savexmm %xmm11, 0x80
        movaps  %xmm12, 0x90(%rsp)
        .seh_savexmm %xmm12, 0x90
        movaps  %xmm13, 0xA0(%rsp)
        .seh_savexmm %xmm13, 0xA0
        movaps  %xmm14, 0xB0(%rsp)
        .seh_savexmm %xmm14, 0xB0
        movaps  %xmm15, 0xC0(%rsp)
        .seh_savexmm %xmm15, 0xC0
        .seh_endprologue
        movq    %r8, 0x20(%rsp)
        movq    %rcx, %rax
        movq    %rdx, %rcx
.Lexception_scope_begin:
        callq   *%rax
        nop
.Lexception_scope_end:
        movl    $1, %eax
.Lexception_scope_leave:
        movaps  0x30(%rsp), %xmm6
        movaps  0x40(%rsp), %xmm7
        movaps  0x50(%rsp), %xmm8
        movaps  0x60(%rsp), %xmm9
        movaps  0x70(%rsp), %xmm10
        movaps  0x80(%rsp), %xmm11
        movaps  0x90(%rsp), %xmm12
        movaps  0xA0(%rsp), %xmm13
        movaps  0xB0(%rsp), %xmm14
        movaps  0xC0(%rsp), %xmm15
        addq    $0xD8, %rsp
        popq    %r15
        popq    %r14
        popq    %r13
        popq    %r12
        popq    %rdi
        popq    %rsi
        popq    %rbx
        popq    %rbp
        ret
.Lexception_scope_target:
        xorl    %eax, %eax
        jmp     .Lexception_scope_leave
        .seh_handler __C_specific_handler, @except
        .seh_handlerdata
        .long   1
        .rva    .Lexception_scope_begin
        .rva    .Lexception_scope_end
        .rva    .Lexception_scope_filter
        .rva    .Lexception_scope_target
        .text
        .seh_endproc

# rcx: EXCEPTION_POINTERS, rdx: the frame above. GCC's own exceptions (codes 0x20474343 to 0x22474343) are not asked
# about and pass.
.Lexception_scope_filter:
        movq    (%rcx), %rcx
        movl    (%rcx), %ecx
        movl    %ecx, %eax
        andl    $0x00FFFFFF, %eax
        cmpl    $0x00474343, %eax
        je      .Lexception_scope_pass
        movq    0x20(%rdx), %rax
        jmp     *%rax
.Lexception_scope_pass:
        xorl    %eax, %eax
        ret
)");

namespace win32 {

BOOL CallWithExceptionFilter(void (*call)(void* context), void* context, LONG (*filter)(DWORD exceptionCode)) {
  if (Win32CallInExceptionScope(call, context, filter)) return TRUE;
  // After a stack overflow: without its guard page the stack's next one would end the process. Otherwise nothing.
  _resetstkoflw();
  return FALSE;
}

}  // namespace win32
