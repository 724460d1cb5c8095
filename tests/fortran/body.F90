! A body through every entry point. Compiled twice: as free_body through the module and its explicit interfaces, and as
! fixed_body without the module, as programs of old call the entry points. Values are 1/8, 2/8, ... in the order of their use.
#ifdef ZEL_WITHOUT_MODULE
#define free_body fixed_body
#endif
subroutine free_body(failures)
  use, intrinsic :: iso_c_binding, only: c_double, c_int
#ifndef ZEL_WITHOUT_MODULE
  use zel
#endif
  implicit none
  integer(c_int), intent(out) :: failures
  integer(c_int), parameter :: m = 3
  integer(c_int) :: i, k, n, ierr
  real(c_double) :: last, v(9), s(6), v3(m, 3), a(6, 11:18)
  character(len=80) :: title = 'Cube of eight nodes', comment = 'built by Fortran'
  character(len=20) :: unit = 'mm'

  failures = 0
  last = 0
  call zel_create(8, 1, ierr); call tally
  call zel_make_room(8, m, ierr); call tally
  call zel_set_header(title, 'cube.f', 'FORTRAN ', comment, ' ', 'last', ierr); call tally
  call zel_set_units('KILOGRAM', unit, 's  ', 'N', ierr); call tally
  do n = 11, 18
    v(1:3) = next(3)
    if (n == 12) then
      call zel_set_nodes(1, [n], v(1:3), ierr)
    else if (mod(n, 2) == 0) then
      call zel_set_node_coordinates(n, v(1), v(2), v(3), ierr)
    else
      call zel_set_node_coordinates_vec(n, v(1:3), ierr)
    end if
    call tally
    if (n == 12) then
      call zel_set_nodal_masses(1, [n], next(1), ierr)
    else
      call zel_set_nodal_mass(n, value(), ierr)
    end if
    call tally
  end do
  s = next(6)
  call zel_set_nodal_inertia(11, s(1), s(2), s(3), s(4), s(5), s(6), ierr); call tally
  call zel_set_nodal_inertia_vec(12, next(6), ierr); call tally
  call zel_set_nodal_inertia_entry(13, 4, 6, value(), ierr); call tally
  v = next(9)
  v(4) = v(2); v(7) = v(3); v(8) = v(6)
  call zel_set_nodal_inertia_mat(14, v, ierr); call tally
  call zel_set_interface_node(18, ierr); call tally
  call zel_set_face(4, [11, 12, 13, 14], ierr); call tally
  call zel_set_face_2(11, 15, ierr); call tally
  call zel_set_face_3(11, 12, 16, ierr); call tally
  call zel_set_face_4(12, 13, 17, 16, ierr); call tally
  call zel_set_face_5(11, 12, 13, 14, 15, ierr); call tally
  call zel_set_face_6(11, 12, 13, 14, 15, 16, ierr); call tally
  call zel_set_face_7(11, 12, 13, 14, 15, 16, 17, ierr); call tally
  call zel_set_face_8(11, 12, 13, 14, 15, 16, 17, 18, ierr); call tally
  do i = 1, m
    do n = 11, 18
      s = next(6)
      if (i == 1) then
        call zel_set_mode_shape(i, n, s(1), s(2), s(3), s(4), s(5), s(6), ierr)
      else if (i == 2) then
        call zel_set_mode_shape_vec(i, n, s, ierr)
      else
        a(:, n) = s
        if (n == 18) call zel_set_mode_array(i, 0, 8, [(k, k = 11, 18)], a, ierr)
      end if
      call tally
    end do
    call zel_set_mode_shape_entry(i, 18, 6, value(), ierr); call tally
    s = next(6)
    call zel_set_modal_stress(i, 17, s(1), s(2), s(3), s(4), s(5), s(6), ierr); call tally
    call zel_get_modal_stress(i, 17, v(1), v(2), v(3), v(4), v(5), v(6), ierr); call tally
    failures = failures + count(abs(v(1:6) - s) > 0)
    call zel_set_modal_stress_vec(i, 12, next(6), ierr); call tally
    s = next(6)
    call zel_set_modal_strain(i, 13, s(1), s(2), s(3), s(4), s(5), s(6), ierr); call tally
    s = next(6)
    call zel_set_modal_strain_vec(i, 14, s, ierr); call tally
    call zel_get_modal_strain(i, 14, v(1), v(2), v(3), v(4), v(5), v(6), ierr); call tally
    failures = failures + count(abs(v(1:6) - s) > 0)
  end do
  call zel_set_modal_stress_vec(0, 17, next(6), ierr); call tally
  call zel_set_modal_strain_vec(0, 14, next(6), ierr); call tally
  call zel_get_mode_count(k, ierr); call tally
  if (k /= m) failures = failures + 1
  do i = 1, m
    call zel_set_generalized_stiffness(i, i, value(), ierr); call tally
    call zel_set_generalized_damping(i, 1, value(), ierr); call tally
    call zel_set_modal_preload(i, value(), ierr); call tally
    call zel_set_modal_load(1, i, value(), ierr); call tally
    call zel_set_modal_load(3, i, value(), ierr); call tally
  end do
  call zel_set_loadcase_label(1, title, ierr); call tally
  call zel_set_loadcase_label(2, '   ', ierr); call tally
  call zel_set_invar1(value(), ierr); call tally
  call zel_set_invar2(next(3), ierr); call tally
  v3 = reshape(next(3 * m), shape(v3))
  call zel_set_invar3(v3, ierr); call tally
  call zel_set_invar4(v3, ierr); call tally
  call zel_set_invar5(reshape(next(3 * m * m), [m, 3, m]), ierr); call tally
  call zel_set_invar6(spread(1.0_c_double, 1, m), ierr); call tally
  call zel_set_invar7(next(9), ierr); call tally
  call zel_set_invar8(reshape(next(9 * m), [3, 3, m]), ierr); call tally
  call zel_set_invar9(reshape(next(9 * m * m), [3, 3, m, m]), ierr); call tally
  call zel_set_generalized_mass(1, 1, 1.0_c_double, ierr); call tally
  s(1:4) = next(4)
  call zel_set_global_mass(s(1), s(2:4), next(9), ierr); call tally

contains

  subroutine tally
    failures = failures + ierr
  end subroutine

  ! The next values of the series 1/8, 2/8, ...
  function next(length) result(values)
    integer(c_int), intent(in) :: length
    real(c_double) :: values(length)
    integer(c_int) :: at
    values = [(last + at * 0.125_c_double, at = 1, length)]
    last = last + length * 0.125_c_double
  end function

  real(c_double) function value()
    value = sum(next(1))
  end function

end subroutine
