! SPDX-License-Identifier: BSD-3-Clause
program first_call
  implicit none
  real(4) :: a(2, 2) = reshape([1., 3., 2., 4.], [2, 2]), b(2, 2) = reshape([5., 7., 6., 8.], [2, 2]), c(2, 2)
  integer(8) :: two = 2
  external :: sgemm
  call sgemm('N', 'N', two, two, two, 1.0, a, two, b, two, 0.0, c, two)
  print '(a,2f4.0,a,2f4.0,a)', 'Fortran      A*B = (', c(1, :), ';', c(2, :), ')'
  if (any(c /= reshape([19., 43., 22., 50.], [2, 2]))) stop 1
end program
