! A small finite-element program that hands a flexible body to zel: a space frame of Euler-Bernoulli beams, reduced by the
! method of Craig and Bampton (AIAA Journal 6, 1968) to the freedoms of two interface nodes and the lowest modes of the
! frame that is held there. The reduced matrices go to zel as they are; on writing, zel orthogonalises the modes.
!
! Usage: space_frame FILE
program space_frame
  use, intrinsic :: iso_fortran_env, only: error_unit
  use zel
  implicit none

  integer, parameter :: dp = kind(1d0)
  real(dp), parameter :: pi = acos(-1.0_dp)

  ! A steel tube of one metre that lies askew, so that no global axis is one of its own.
  integer, parameter :: elements = 30, nodes = elements + 1, freedoms = 6 * nodes
  real(dp), parameter :: length = 1.0_dp, axis(3) = [1.0_dp, 2.0_dp, 2.0_dp] / 3, outer = 0.02_dp, inner = 0.018_dp
  real(dp), parameter :: young = 210e9_dp, poisson = 0.3_dp, density = 7850.0_dp
  real(dp), parameter :: area = pi * (outer**2 - inner**2), bending = pi / 4 * (outer**4 - inner**4)

  integer, parameter :: held(12) = [1, 2, 3, 4, 5, 6, freedoms - 5, freedoms - 4, freedoms - 3, freedoms - 2, &
      freedoms - 1, freedoms] ! freedoms of the two interface nodes, the ends
  integer, parameter :: inside = freedoms - 12, fixed_modes = 40, modes = 12 + fixed_modes

  interface
    subroutine dpotrf(uplo, n, a, lda, info)
      character, intent(in) :: uplo
      integer, intent(in) :: n, lda
      double precision, intent(inout) :: a(lda, *)
      integer, intent(out) :: info
    end subroutine
    subroutine dpotrs(uplo, n, nrhs, a, lda, b, ldb, info)
      character, intent(in) :: uplo
      integer, intent(in) :: n, nrhs, lda, ldb
      double precision, intent(in) :: a(lda, *)
      double precision, intent(inout) :: b(ldb, *)
      integer, intent(out) :: info
    end subroutine
    subroutine dsygv(itype, jobz, uplo, n, a, lda, b, ldb, w, work, lwork, info)
      integer, intent(in) :: itype, n, lda, ldb, lwork
      character, intent(in) :: jobz, uplo
      double precision, intent(inout) :: a(lda, *), b(ldb, *)
      double precision, intent(out) :: w(*), work(*)
      integer, intent(out) :: info
    end subroutine
  end interface

  real(dp), allocatable :: xyz(:, :), stiffness(:, :), mass(:, :), basis(:, :)
  character(len=256) :: file

  if (command_argument_count() /= 1) call give_up('usage: space_frame FILE')
  call get_command_argument(1, file)
  call assemble
  call reduce
  call write_body
  deallocate (xyz, stiffness, mass, basis)

contains

  subroutine give_up(text)
    character(len=*), intent(in) :: text
    write (error_unit, '(a)') text
    error stop 1
  end subroutine

  ! ---- Finite elements -----------------------------------------------------------------------------------------------

  subroutine assemble
    real(dp) :: k(12, 12), m(12, 12)
    integer :: node, element, at
    allocate (xyz(3, nodes), stiffness(freedoms, freedoms), mass(freedoms, freedoms))
    do node = 1, nodes
      xyz(:, node) = axis * length * (node - 1) / elements
    end do
    stiffness = 0
    mass = 0
    do element = 1, elements
      call beam(xyz(:, element), xyz(:, element + 1), k, m)
      at = 6 * (element - 1)
      stiffness(at+1:at+12, at+1:at+12) = stiffness(at+1:at+12, at+1:at+12) + k
      mass(at+1:at+12, at+1:at+12) = mass(at+1:at+12, at+1:at+12) + m
    end do
  end subroutine

  ! Stiffness and consistent mass of a beam between two points, in global axes.
  subroutine beam(a, b, k, m)
    real(dp), intent(in) :: a(3), b(3)
    real(dp), intent(out) :: k(12, 12), m(12, 12)
    real(dp) :: l, turn(12, 12), axes(3, 3)
    integer :: i
    l = norm2(b - a)
    k = 0
    m = 0
    call add_rod(k, m, 1, young * area / l, density * area * l)
    call add_rod(k, m, 4, young / (2 * (1 + poisson)) * 2 * bending / l, density * 2 * bending * l)
    call add_bending(k, m, l, [2, 6, 8, 12], 1)
    call add_bending(k, m, l, [3, 5, 9, 11], -1)
    axes = local_axes((b - a) / l)
    turn = 0
    do i = 1, 10, 3
      turn(i:i+2, i:i+2) = axes
    end do
    k = matmul(transpose(turn), matmul(k, turn))
    m = matmul(transpose(turn), matmul(m, turn))
  end subroutine

  ! Extension or torsion: one freedom at each end.
  subroutine add_rod(k, m, first, spring, inertia)
    real(dp), intent(inout) :: k(12, 12), m(12, 12)
    integer, intent(in) :: first
    real(dp), intent(in) :: spring, inertia
    integer :: at(2)
    at = [first, first + 6]
    k(at, at) = spring * reshape([1.0_dp, -1.0_dp, -1.0_dp, 1.0_dp], [2, 2])
    m(at, at) = inertia / 6 * reshape([2.0_dp, 1.0_dp, 1.0_dp, 2.0_dp], [2, 2])
  end subroutine

  ! Deflection and rotation at each end; sense is -1 where a positive rotation lowers the slope.
  subroutine add_bending(k, m, l, at, sense)
    real(dp), intent(inout) :: k(12, 12), m(12, 12)
    real(dp), intent(in) :: l
    integer, intent(in) :: at(4), sense
    real(dp) :: s
    s = sense * l
    k(at, at) = young * bending / l**3 * reshape([ &
        12.0_dp, 6 * s, -12.0_dp, 6 * s, &
        6 * s, 4 * l**2, -6 * s, 2 * l**2, &
        -12.0_dp, -6 * s, 12.0_dp, -6 * s, &
        6 * s, 2 * l**2, -6 * s, 4 * l**2], [4, 4])
    m(at, at) = density * area * l / 420 * reshape([ &
        156.0_dp, 22 * s, 54.0_dp, -13 * s, &
        22 * s, 4 * l**2, 13 * s, -3 * l**2, &
        54.0_dp, 13 * s, 156.0_dp, -22 * s, &
        -13 * s, -3 * l**2, -22 * s, 4 * l**2], [4, 4])
  end subroutine

  ! Rows: the beam's own x, along it, and two axes across.
  function local_axes(x) result(axes)
    real(dp), intent(in) :: x(3)
    real(dp) :: axes(3, 3), y(3)
    y = 0
    y(minloc(abs(x), 1)) = 1
    y = cross(y, x)
    y = y / norm2(y)
    axes(1, :) = x
    axes(2, :) = y
    axes(3, :) = cross(x, y)
  end function

  function cross(a, b) result(c)
    real(dp), intent(in) :: a(3), b(3)
    real(dp) :: c(3)
    c = [a(2) * b(3) - a(3) * b(2), a(3) * b(1) - a(1) * b(3), a(1) * b(2) - a(2) * b(1)]
  end function

  ! ---- Craig-Bampton reduction ---------------------------------------------------------------------------------------

  ! Columns of the basis: unit motions of the held freedoms, which the inside follows statically, then the lowest modes
  ! of the inside while these are held. The free freedoms are those between the two ends, 7 to 6 + inside.
  subroutine reduce
    real(dp), allocatable :: factor(:, :), inner_mass(:, :), follow(:, :)
    real(dp) :: eigenvalues(inside), work(40 * inside)
    integer :: info, i
    allocate (factor(inside, inside), inner_mass(inside, inside), follow(inside, 12), basis(freedoms, modes))
    factor = stiffness(7:6+inside, 7:6+inside)
    follow = -stiffness(7:6+inside, held)
    call dpotrf('U', inside, factor, inside, info)
    if (info /= 0) call give_up('the frame moves although its ends are held')
    call dpotrs('U', inside, 12, factor, inside, follow, inside, info)
    basis = 0
    basis(7:6+inside, 1:12) = follow
    do i = 1, 12
      basis(held(i), i) = 1
    end do
    factor = stiffness(7:6+inside, 7:6+inside)
    inner_mass = mass(7:6+inside, 7:6+inside)
    call dsygv(1, 'V', 'U', inside, factor, inside, inner_mass, inside, eigenvalues, work, size(work), info)
    if (info /= 0) call give_up('the eigenvalue problem has no solution')
    basis(7:6+inside, 13:) = factor(:, 1:fixed_modes)
  end subroutine

  ! ---- The flexible body ---------------------------------------------------------------------------------------------

  subroutine write_body
    real(dp), allocatable :: k(:, :), m(:, :)
    real(dp) :: share, tensor(3, 3)
    integer :: node, i, j, ierr
    allocate (k(modes, modes), m(modes, modes))
    k = matmul(transpose(basis), matmul(stiffness, basis))
    m = matmul(transpose(basis), matmul(mass, basis))

    call zel_create(nodes, modes, ierr)
    call check(ierr, 'zel_create')
    call zel_set_header('Space frame', ' ', 'beams', 'Craig-Bampton reduction', ' ', ' ', ierr)
    call check(ierr, 'zel_set_header')
    call zel_set_units('kg', 'm', 's', 'N', ierr)
    call check(ierr, 'zel_set_units')
    do node = 1, nodes
      call zel_set_node_coordinates_vec(node, xyz(:, node), ierr)
      call check(ierr, 'zel_set_node_coordinates_vec')
      share = density * length / elements ! an inner node bears half of each neighbour
      if (node == 1 .or. node == nodes) share = share / 2
      call zel_set_nodal_mass(node, share * area, ierr)
      call check(ierr, 'zel_set_nodal_mass')
      do i = 1, 3
        tensor(:, i) = share * 2 * bending * axis * axis(i) ! about the tube's axis
      end do
      call zel_set_nodal_inertia_mat(node, tensor, ierr)
      call check(ierr, 'zel_set_nodal_inertia_mat')
      if (node > 1) call zel_set_face_2(node - 1, node, ierr)
      call check(ierr, 'zel_set_face_2')
    end do
    call zel_set_interface_node(1, ierr)
    call check(ierr, 'zel_set_interface_node')
    call zel_set_interface_node(nodes, ierr)
    call check(ierr, 'zel_set_interface_node')
    do i = 1, modes
      do node = 1, nodes
        call zel_set_mode_shape_vec(i, node, basis(6*node-5:6*node, i), ierr)
        call check(ierr, 'zel_set_mode_shape_vec')
      end do
      do j = 1, modes
        call zel_set_generalized_stiffness(i, j, k(i, j), ierr)
        call check(ierr, 'zel_set_generalized_stiffness')
        call zel_set_generalized_mass(i, j, m(i, j), ierr)
        call check(ierr, 'zel_set_generalized_mass')
      end do
    end do
    call zel_write_zel(file, ierr)
    call check(ierr, 'zel_write_zel')
    call zel_terminate(ierr)
  end subroutine

  subroutine check(ierr, routine)
    integer, intent(in) :: ierr
    character(len=*), intent(in) :: routine
    if (ierr /= 0) call give_up(routine // ' failed')
  end subroutine

end program
