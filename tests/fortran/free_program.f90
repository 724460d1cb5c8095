! Writes the body to the file that the command line names.
program free_program
  use, intrinsic :: iso_c_binding, only: c_int
  use zel, only: zel_terminate, zel_write_zel
  implicit none
  external :: free_body
  character(len=200) :: name
  integer(c_int) :: failures, ierr
  call get_command_argument(1, name)
  call free_body(failures)
  call zel_write_zel(name, ierr)
  if (failures + ierr /= 0) error stop 1
  call zel_terminate(ierr)
  if (ierr /= 0) error stop 1
end program
