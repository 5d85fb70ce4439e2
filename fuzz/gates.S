// The slot fuzzer's gates (x86-64, System V). The harness hands a check these in
// place of the host's and the module's routines. A gate tells the harness which
// side is about to run (tarnell_fuzz_gate_enter returns that side's routine),
// jumps to the routine with every argument register and the caller's stack
// untouched, so any signature passes through, and has the routine return to it;
// there it tells the harness the routine has ended (tarnell_fuzz_gate_leave
// returns where the caller called from) and returns there with the routine's
// results. Every call the routine made into the host in between is its side's.

        .text

        .globl  tarnell_fuzz_gate_host
        .type   tarnell_fuzz_gate_host, @function
tarnell_fuzz_gate_host:
        xorl    %r11d, %r11d
        jmp     .Lenter
        .size   tarnell_fuzz_gate_host, .-tarnell_fuzz_gate_host

        .globl  tarnell_fuzz_gate_module
        .type   tarnell_fuzz_gate_module, @function
tarnell_fuzz_gate_module:
        movl    $1, %r11d
        jmp     .Lenter
        .size   tarnell_fuzz_gate_module, .-tarnell_fuzz_gate_module

        .type   tarnell_fuzz_gate_common, @function
tarnell_fuzz_gate_common:
.Lenter:
        // The argument registers (and %al, the vector count of variadic calls):
        // 8 vector and 7 integer registers, 184 bytes, which also align the
        // stack for the call.
        subq    $184, %rsp
        movdqu  %xmm0, 0(%rsp)
        movdqu  %xmm1, 16(%rsp)
        movdqu  %xmm2, 32(%rsp)
        movdqu  %xmm3, 48(%rsp)
        movdqu  %xmm4, 64(%rsp)
        movdqu  %xmm5, 80(%rsp)
        movdqu  %xmm6, 96(%rsp)
        movdqu  %xmm7, 112(%rsp)
        movq    %rdi, 128(%rsp)
        movq    %rsi, 136(%rsp)
        movq    %rdx, 144(%rsp)
        movq    %rcx, 152(%rsp)
        movq    %r8, 160(%rsp)
        movq    %r9, 168(%rsp)
        movq    %rax, 176(%rsp)
        movl    %r11d, %edi
        movq    184(%rsp), %rsi
        call    tarnell_fuzz_gate_enter@PLT
        movq    %rax, %r11
        movdqu  0(%rsp), %xmm0
        movdqu  16(%rsp), %xmm1
        movdqu  32(%rsp), %xmm2
        movdqu  48(%rsp), %xmm3
        movdqu  64(%rsp), %xmm4
        movdqu  80(%rsp), %xmm5
        movdqu  96(%rsp), %xmm6
        movdqu  112(%rsp), %xmm7
        movq    128(%rsp), %rdi
        movq    136(%rsp), %rsi
        movq    144(%rsp), %rdx
        movq    152(%rsp), %rcx
        movq    160(%rsp), %r8
        movq    168(%rsp), %r9
        movq    176(%rsp), %rax
        addq    $184, %rsp
        // The routine returns to the gate, not to the caller.
        leaq    .Lreturned(%rip), %r10
        movq    %r10, (%rsp)
        jmp     *%r11

.Lreturned:
        // The results (integer and vector pairs) around the call; the stack is
        // aligned as the caller's was before its call.
        subq    $48, %rsp
        movq    %rax, 0(%rsp)
        movq    %rdx, 8(%rsp)
        movdqu  %xmm0, 16(%rsp)
        movdqu  %xmm1, 32(%rsp)
        call    tarnell_fuzz_gate_leave@PLT
        movq    %rax, %r11
        movq    0(%rsp), %rax
        movq    8(%rsp), %rdx
        movdqu  16(%rsp), %xmm0
        movdqu  32(%rsp), %xmm1
        addq    $48, %rsp
        jmp     *%r11
        .size   tarnell_fuzz_gate_common, .-tarnell_fuzz_gate_common

        .section .note.GNU-stack,"",@progbits
