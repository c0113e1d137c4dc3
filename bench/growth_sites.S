// GROWTH_SITES places that call malloc. Each is a call site of its own; the compiler would take
// minutes over as many functions.
//
//   void* allocate_at(size_t size, size_t site)

	.text
	.globl	allocate_at
	.type	allocate_at, @function
allocate_at:
	.cfi_startproc
	subq	$8, %rsp
	.cfi_adjust_cfa_offset 8
	leaq	first_site(%rip), %rax
	shlq	$4, %rsi
	addq	%rsi, %rax
	jmp	*%rax

	.balign	16
first_site:
	.rept	GROWTH_SITES
	call	malloc@PLT
	jmp	last_site
	.balign	16
	.endr

last_site:
	addq	$8, %rsp
	.cfi_adjust_cfa_offset -8
	ret
	.cfi_endproc
	.size	allocate_at, .-allocate_at

	.section	.note.GNU-stack, "", @progbits
