program user
  use zel
  use, intrinsic :: iso_c_binding
  implicit none
  integer(c_int) :: ierr
  call zel_create(1_c_int, 1_c_int, ierr)
  if (ierr /= 0) stop 1
  call zel_set_node_coordinates(7_c_int, 1.0_c_double, 2.0_c_double, 3.0_c_double, ierr)
  if (ierr /= 0) stop 1
  call zel_terminate(ierr)
end program
