! Explicit interfaces to zel for Fortran 2003 and later: compile this file with your program and link libzel.
!
! Every routine works on one current database and ends with an error flag, 0 on success and 1 on failure; what each does
! is said at the C function of the same name in zel.h. Texts may be padded with blanks: trailing ones are not part of a
! header text, a unit, a label or the file name of zel_write_zel; zel_create_from_zel and zel_write_ansys_zel take their name
! as it is, so give them trim(name).
!
! Programs that do without the module say CALL ZEL_CREATE(...) just so, also in fixed form: the library exports the names
! that gfortran gives to external routines (not those of -fsecond-underscore).
module zel
  use, intrinsic :: iso_c_binding, only: c_char, c_double, c_int
  implicit none
  private
  public :: zel_make_room, zel_set_nodes, zel_set_nodal_masses, zel_set_mode_array, zel_write_with_options
  public :: zel_create, zel_terminate, zel_units_si_multipliers, zel_set_node_coordinates, &
      zel_set_node_coordinates_vec, zel_set_nodal_mass, zel_set_global_mass, zel_set_nodal_inertia, &
      zel_set_nodal_inertia_vec, zel_set_nodal_inertia_entry, zel_set_nodal_inertia_mat, zel_set_interface_node, &
      zel_set_face, zel_set_face_2, zel_set_face_3, zel_set_face_4, zel_set_face_5, zel_set_face_6, zel_set_face_7, &
      zel_set_face_8, zel_set_mode_shape, zel_set_mode_shape_vec, zel_set_mode_shape_entry, zel_set_modal_stress, &
      zel_set_modal_stress_vec, zel_set_modal_strain, zel_set_modal_strain_vec, zel_get_modal_stress, &
      zel_get_modal_strain, zel_get_mode_count, zel_get_transform_to_selmod, zel_set_generalized_mass, &
      zel_set_generalized_stiffness, zel_set_generalized_damping, zel_set_modal_load, zel_set_modal_preload, &
      zel_set_invar1, zel_set_invar2, zel_set_invar3, zel_set_invar4, zel_set_invar5, zel_set_invar6, &
      zel_set_invar7, zel_set_invar8, zel_set_invar9, zel_create_from_zel, zel_set_header, zel_set_units, &
      zel_set_loadcase_label, zel_write_zel, zel_write_ansys_zel, zel_qzhess, zel_qzitt, zel_qzvall, zel_qzvecc, &
      eigpsn

  interface

    ! Lifetime: one current database, on which all other routines work
    subroutine zel_create(max_mode_nodes, max_modes, ierr) bind(C, name='ZEL_CREATE')
      import :: c_int
      integer(c_int), intent(in) :: max_mode_nodes, max_modes
      integer(c_int), intent(out) :: ierr
    end subroutine
    subroutine zel_terminate(ierr) bind(C, name='ZEL_TERMINATE')
      import :: c_int
      integer(c_int), intent(out) :: ierr
    end subroutine

    subroutine zel_make_room(max_mode_nodes, max_modes, ierr) bind(C, name='ZEL_MAKE_ROOM')
      import :: c_int
      integer(c_int), intent(in) :: max_mode_nodes, max_modes
      integer(c_int), intent(out) :: ierr
    end subroutine

    ! Units: SI factors, for example 0.001 for a length in millimetres
    subroutine zel_units_si_multipliers(mass, length, time, force, ierr) bind(C, name='ZEL_UNITS_SI_MULTIPLIERS')
      import :: c_double, c_int
      real(c_double), intent(in) :: mass, length, time, force
      integer(c_int), intent(out) :: ierr
    end subroutine

    ! Nodes and masses, many at once or one by one
    subroutine zel_set_nodes(count, node_ids, coordinates, ierr) bind(C, name='ZEL_SET_NODES')
      import :: c_double, c_int
      integer(c_int), intent(in) :: count, node_ids(count)
      real(c_double), intent(in) :: coordinates(3, count)
      integer(c_int), intent(out) :: ierr
    end subroutine
    subroutine zel_set_nodal_masses(count, node_ids, masses, ierr) bind(C, name='ZEL_SET_NODAL_MASSES')
      import :: c_double, c_int
      integer(c_int), intent(in) :: count, node_ids(count)
      real(c_double), intent(in) :: masses(count)
      integer(c_int), intent(out) :: ierr
    end subroutine
    subroutine zel_set_node_coordinates(node_id, x, y, z, ierr) bind(C, name='ZEL_SET_NODE_COORDINATES')
      import :: c_double, c_int
      integer(c_int), intent(in) :: node_id
      real(c_double), intent(in) :: x, y, z
      integer(c_int), intent(out) :: ierr
    end subroutine
    subroutine zel_set_node_coordinates_vec(node_id, xyz, ierr) bind(C, name='ZEL_SET_NODE_COORDINATES_VEC')
      import :: c_double, c_int
      integer(c_int), intent(in) :: node_id
      real(c_double), intent(in) :: xyz(3)
      integer(c_int), intent(out) :: ierr
    end subroutine
    subroutine zel_set_nodal_mass(node_id, mass, ierr) bind(C, name='ZEL_SET_NODAL_MASS')
      import :: c_double, c_int
      integer(c_int), intent(in) :: node_id
      real(c_double), intent(in) :: mass
      integer(c_int), intent(out) :: ierr
    end subroutine
    subroutine zel_set_global_mass(mass, center, inertia, ierr) bind(C, name='ZEL_SET_GLOBAL_MASS')
      import :: c_double, c_int
      real(c_double), intent(in) :: mass, center(3), inertia(9)
      integer(c_int), intent(out) :: ierr
    end subroutine
    subroutine zel_set_nodal_inertia(node_id, xx, yy, zz, xy, xz, yz, ierr) bind(C, name='ZEL_SET_NODAL_INERTIA')
      import :: c_double, c_int
      integer(c_int), intent(in) :: node_id
      real(c_double), intent(in) :: xx, yy, zz, xy, xz, yz
      integer(c_int), intent(out) :: ierr
    end subroutine
    subroutine zel_set_nodal_inertia_vec(node_id, values, ierr) bind(C, name='ZEL_SET_NODAL_INERTIA_VEC')
      import :: c_double, c_int
      integer(c_int), intent(in) :: node_id
      real(c_double), intent(in) :: values(6)
      integer(c_int), intent(out) :: ierr
    end subroutine
    subroutine zel_set_nodal_inertia_entry(node_id, row, column, value, ierr) bind(C, &
        name='ZEL_SET_NODAL_INERTIA_ENTRY')
      import :: c_double, c_int
      integer(c_int), intent(in) :: node_id, row, column
      real(c_double), intent(in) :: value
      integer(c_int), intent(out) :: ierr
    end subroutine
    subroutine zel_set_nodal_inertia_mat(node_id, matrix, ierr) bind(C, name='ZEL_SET_NODAL_INERTIA_MAT')
      import :: c_double, c_int
      integer(c_int), intent(in) :: node_id
      real(c_double), intent(in) :: matrix(9)
      integer(c_int), intent(out) :: ierr
    end subroutine

    ! Faces and interface nodes
    subroutine zel_set_interface_node(node_id, ierr) bind(C, name='ZEL_SET_INTERFACE_NODE')
      import :: c_int
      integer(c_int), intent(in) :: node_id
      integer(c_int), intent(out) :: ierr
    end subroutine
    subroutine zel_set_face(vertex_count, node_ids, ierr) bind(C, name='ZEL_SET_FACE')
      import :: c_int
      integer(c_int), intent(in) :: vertex_count, node_ids(*)
      integer(c_int), intent(out) :: ierr
    end subroutine
    subroutine zel_set_face_2(a, b, ierr) bind(C, name='ZEL_SET_FACE_2')
      import :: c_int
      integer(c_int), intent(in) :: a, b
      integer(c_int), intent(out) :: ierr
    end subroutine
    subroutine zel_set_face_3(a, b, c, ierr) bind(C, name='ZEL_SET_FACE_3')
      import :: c_int
      integer(c_int), intent(in) :: a, b, c
      integer(c_int), intent(out) :: ierr
    end subroutine
    subroutine zel_set_face_4(a, b, c, d, ierr) bind(C, name='ZEL_SET_FACE_4')
      import :: c_int
      integer(c_int), intent(in) :: a, b, c, d
      integer(c_int), intent(out) :: ierr
    end subroutine
    subroutine zel_set_face_5(a, b, c, d, e, ierr) bind(C, name='ZEL_SET_FACE_5')
      import :: c_int
      integer(c_int), intent(in) :: a, b, c, d, e
      integer(c_int), intent(out) :: ierr
    end subroutine
    subroutine zel_set_face_6(a, b, c, d, e, f, ierr) bind(C, name='ZEL_SET_FACE_6')
      import :: c_int
      integer(c_int), intent(in) :: a, b, c, d, e, f
      integer(c_int), intent(out) :: ierr
    end subroutine
    subroutine zel_set_face_7(a, b, c, d, e, f, g, ierr) bind(C, name='ZEL_SET_FACE_7')
      import :: c_int
      integer(c_int), intent(in) :: a, b, c, d, e, f, g
      integer(c_int), intent(out) :: ierr
    end subroutine
    subroutine zel_set_face_8(a, b, c, d, e, f, g, h, ierr) bind(C, name='ZEL_SET_FACE_8')
      import :: c_int
      integer(c_int), intent(in) :: a, b, c, d, e, f, g, h
      integer(c_int), intent(out) :: ierr
    end subroutine

    ! Mode shapes (translations and rotations; dof 1 to 6), modal stress and strain (x, y, z, xy, xz, yz; mode 0: pre-stress)
    subroutine zel_set_mode_shape(mode, node_id, tx, ty, tz, rx, ry, rz, ierr) bind(C, name='ZEL_SET_MODE_SHAPE')
      import :: c_double, c_int
      integer(c_int), intent(in) :: mode, node_id
      real(c_double), intent(in) :: tx, ty, tz, rx, ry, rz
      integer(c_int), intent(out) :: ierr
    end subroutine
    subroutine zel_set_mode_shape_vec(mode, node_id, values, ierr) bind(C, name='ZEL_SET_MODE_SHAPE_VEC')
      import :: c_double, c_int
      integer(c_int), intent(in) :: mode, node_id
      real(c_double), intent(in) :: values(6)
      integer(c_int), intent(out) :: ierr
    end subroutine
    subroutine zel_set_mode_shape_entry(mode, node_id, dof, value, ierr) bind(C, name='ZEL_SET_MODE_SHAPE_ENTRY')
      import :: c_double, c_int
      integer(c_int), intent(in) :: mode, node_id, dof
      real(c_double), intent(in) :: value
      integer(c_int), intent(out) :: ierr
    end subroutine
    subroutine zel_set_mode_array(mode, kind, count, node_ids, values, ierr) bind(C, name='ZEL_SET_MODE_ARRAY')
      import :: c_double, c_int
      integer(c_int), intent(in) :: mode, kind, count, node_ids(count)
      real(c_double), intent(in) :: values(6, count)
      integer(c_int), intent(out) :: ierr
    end subroutine
    subroutine zel_set_modal_stress(mode, node_id, xx, yy, zz, xy, xz, yz, ierr) bind(C, name='ZEL_SET_MODAL_STRESS')
      import :: c_double, c_int
      integer(c_int), intent(in) :: mode, node_id
      real(c_double), intent(in) :: xx, yy, zz, xy, xz, yz
      integer(c_int), intent(out) :: ierr
    end subroutine
    subroutine zel_set_modal_stress_vec(mode, node_id, values, ierr) bind(C, name='ZEL_SET_MODAL_STRESS_VEC')
      import :: c_double, c_int
      integer(c_int), intent(in) :: mode, node_id
      real(c_double), intent(in) :: values(6)
      integer(c_int), intent(out) :: ierr
    end subroutine
    subroutine zel_set_modal_strain(mode, node_id, xx, yy, zz, xy, xz, yz, ierr) bind(C, name='ZEL_SET_MODAL_STRAIN')
      import :: c_double, c_int
      integer(c_int), intent(in) :: mode, node_id
      real(c_double), intent(in) :: xx, yy, zz, xy, xz, yz
      integer(c_int), intent(out) :: ierr
    end subroutine
    subroutine zel_set_modal_strain_vec(mode, node_id, values, ierr) bind(C, name='ZEL_SET_MODAL_STRAIN_VEC')
      import :: c_double, c_int
      integer(c_int), intent(in) :: mode, node_id
      real(c_double), intent(in) :: values(6)
      integer(c_int), intent(out) :: ierr
    end subroutine
    subroutine zel_get_modal_stress(mode, node_id, xx, yy, zz, xy, xz, yz, ierr) bind(C, name='ZEL_GET_MODAL_STRESS')
      import :: c_double, c_int
      integer(c_int), intent(in) :: mode, node_id
      real(c_double), intent(out) :: xx, yy, zz, xy, xz, yz
      integer(c_int), intent(out) :: ierr
    end subroutine
    subroutine zel_get_modal_strain(mode, node_id, xx, yy, zz, xy, xz, yz, ierr) bind(C, name='ZEL_GET_MODAL_STRAIN')
      import :: c_double, c_int
      integer(c_int), intent(in) :: mode, node_id
      real(c_double), intent(out) :: xx, yy, zz, xy, xz, yz
      integer(c_int), intent(out) :: ierr
    end subroutine
    subroutine zel_get_mode_count(count, ierr) bind(C, name='ZEL_GET_MODE_COUNT')
      import :: c_int
      integer(c_int), intent(out) :: count
      integer(c_int), intent(out) :: ierr
    end subroutine

    ! t is t(nsel, M) for M modes: row j holds the components of every new mode on the selected old mode j
    subroutine zel_get_transform_to_selmod(t, modes, nsel, ierr) bind(C, name='ZEL_GET_TRANSFORM_TO_SELMOD')
      import :: c_double, c_int
      integer(c_int), intent(in) :: nsel, modes(*)
      real(c_double), intent(out) :: t(nsel, *)
      integer(c_int), intent(out) :: ierr
    end subroutine

    ! Generalized matrices, loads (cases from 1) and invariants
    subroutine zel_set_generalized_mass(row_mode, column_mode, value, ierr) bind(C, name='ZEL_SET_GENERALIZED_MASS')
      import :: c_double, c_int
      integer(c_int), intent(in) :: row_mode, column_mode
      real(c_double), intent(in) :: value
      integer(c_int), intent(out) :: ierr
    end subroutine
    subroutine zel_set_generalized_stiffness(row_mode, column_mode, value, ierr) bind(C, &
        name='ZEL_SET_GENERALIZED_STIFFNESS')
      import :: c_double, c_int
      integer(c_int), intent(in) :: row_mode, column_mode
      real(c_double), intent(in) :: value
      integer(c_int), intent(out) :: ierr
    end subroutine
    subroutine zel_set_generalized_damping(row_mode, column_mode, value, ierr) bind(C, &
        name='ZEL_SET_GENERALIZED_DAMPING')
      import :: c_double, c_int
      integer(c_int), intent(in) :: row_mode, column_mode
      real(c_double), intent(in) :: value
      integer(c_int), intent(out) :: ierr
    end subroutine
    subroutine zel_set_modal_load(load_case, mode, value, ierr) bind(C, name='ZEL_SET_MODAL_LOAD')
      import :: c_double, c_int
      integer(c_int), intent(in) :: load_case, mode
      real(c_double), intent(in) :: value
      integer(c_int), intent(out) :: ierr
    end subroutine
    subroutine zel_set_modal_preload(mode, value, ierr) bind(C, name='ZEL_SET_MODAL_PRELOAD')
      import :: c_double, c_int
      integer(c_int), intent(in) :: mode
      real(c_double), intent(in) :: value
      integer(c_int), intent(out) :: ierr
    end subroutine
    subroutine zel_set_invar1(value, ierr) bind(C, name='ZEL_SET_INVAR1')
      import :: c_double, c_int
      real(c_double), intent(in) :: value
      integer(c_int), intent(out) :: ierr
    end subroutine
    subroutine zel_set_invar2(values, ierr) bind(C, name='ZEL_SET_INVAR2')
      import :: c_double, c_int
      real(c_double), intent(in) :: values(3)
      integer(c_int), intent(out) :: ierr
    end subroutine
    subroutine zel_set_invar3(values, ierr) bind(C, name='ZEL_SET_INVAR3')
      import :: c_double, c_int
      real(c_double), intent(in) :: values(*)
      integer(c_int), intent(out) :: ierr
    end subroutine
    subroutine zel_set_invar4(values, ierr) bind(C, name='ZEL_SET_INVAR4')
      import :: c_double, c_int
      real(c_double), intent(in) :: values(*)
      integer(c_int), intent(out) :: ierr
    end subroutine
    subroutine zel_set_invar5(values, ierr) bind(C, name='ZEL_SET_INVAR5')
      import :: c_double, c_int
      real(c_double), intent(in) :: values(*)
      integer(c_int), intent(out) :: ierr
    end subroutine
    subroutine zel_set_invar6(values, ierr) bind(C, name='ZEL_SET_INVAR6')
      import :: c_double, c_int
      real(c_double), intent(in) :: values(*)
      integer(c_int), intent(out) :: ierr
    end subroutine
    subroutine zel_set_invar7(values, ierr) bind(C, name='ZEL_SET_INVAR7')
      import :: c_double, c_int
      real(c_double), intent(in) :: values(9)
      integer(c_int), intent(out) :: ierr
    end subroutine
    subroutine zel_set_invar8(values, ierr) bind(C, name='ZEL_SET_INVAR8')
      import :: c_double, c_int
      real(c_double), intent(in) :: values(*)
      integer(c_int), intent(out) :: ierr
    end subroutine
    subroutine zel_set_invar9(values, ierr) bind(C, name='ZEL_SET_INVAR9')
      import :: c_double, c_int
      real(c_double), intent(in) :: values(*)
      integer(c_int), intent(out) :: ierr
    end subroutine

    ! The stages of the QZ algorithm for A x = lambda B x
    subroutine zel_qzhess(nm, n, a, b, matz, z) bind(C, name='ZEL_QZHESS')
      import :: c_double, c_int
      integer(c_int), intent(in) :: nm, n, matz
      real(c_double), intent(inout) :: a(nm, *), b(nm, *), z(nm, *)
    end subroutine
    subroutine zel_qzitt(nm, n, a, b, eps1, matz, z, ierr) bind(C, name='ZEL_QZITT')
      import :: c_double, c_int
      integer(c_int), intent(in) :: nm, n, matz
      real(c_double), intent(in) :: eps1
      real(c_double), intent(inout) :: a(nm, *), b(nm, *), z(nm, *)
      integer(c_int), intent(out) :: ierr
    end subroutine
    subroutine zel_qzvall(nm, n, a, b, alfr, alfi, beta, matz, z) bind(C, name='ZEL_QZVALL')
      import :: c_double, c_int
      integer(c_int), intent(in) :: nm, n, matz
      real(c_double), intent(inout) :: a(nm, *), b(nm, *), z(nm, *)
      real(c_double), intent(out) :: alfr(*), alfi(*), beta(*)
    end subroutine
    subroutine zel_qzvecc(nm, n, a, b, alfr, alfi, beta, z) bind(C, name='ZEL_QZVECC')
      import :: c_double, c_int
      integer(c_int), intent(in) :: nm, n
      real(c_double), intent(inout) :: a(nm, *), b(nm, *), z(nm, *)
      real(c_double), intent(in) :: alfr(*), alfi(*), beta(*)
    end subroutine
    real(c_double) function eigpsn(x) bind(C, name='EIGPSN')
      import :: c_double
      real(c_double), intent(inout) :: x
    end function

    ! Texts come with their length; the procedures below take it from the program's variable.
    subroutine c_create_from_zel(name, name_len, ierr) &
        bind(C, name='ZEL_CREATE_FROM_ZEL')
      import :: c_char, c_int
      character(kind=c_char), intent(in) :: name(*)
      integer(c_int), value :: name_len
      integer(c_int), intent(out) :: ierr
    end subroutine
    subroutine c_set_header(title, title_len, file_name, file_name_len, file_type, file_type_len, comment1, &
        comment1_len, comment2, comment2_len, comment3, comment3_len, ierr) &
        bind(C, name='ZEL_SET_HEADER')
      import :: c_char, c_int
      character(kind=c_char), intent(in) :: title(*), file_name(*), file_type(*), comment1(*), comment2(*), &
          comment3(*)
      integer(c_int), value :: title_len, file_name_len, file_type_len, comment1_len, comment2_len, comment3_len
      integer(c_int), intent(out) :: ierr
    end subroutine
    subroutine c_set_units(mass, mass_len, length, length_len, time, time_len, force, force_len, ierr) &
        bind(C, name='ZEL_SET_UNITS')
      import :: c_char, c_int
      character(kind=c_char), intent(in) :: mass(*), length(*), time(*), force(*)
      integer(c_int), value :: mass_len, length_len, time_len, force_len
      integer(c_int), intent(out) :: ierr
    end subroutine
    subroutine c_set_loadcase_label(load_case, label, label_len, ierr) &
        bind(C, name='ZEL_SET_LOADCASE_LABEL')
      import :: c_char, c_int
      integer(c_int), intent(in) :: load_case
      character(kind=c_char), intent(in) :: label(*)
      integer(c_int), value :: label_len
      integer(c_int), intent(out) :: ierr
    end subroutine
    subroutine c_write_zel(name, name_len, ierr) &
        bind(C, name='ZEL_WRITE_ZEL')
      import :: c_char, c_int
      character(kind=c_char), intent(in) :: name(*)
      integer(c_int), value :: name_len
      integer(c_int), intent(out) :: ierr
    end subroutine
    subroutine c_write_with_options(name, name_len, options, options_len, ierr) &
        bind(C, name='ZEL_WRITE_WITH_OPTIONS')
      import :: c_char, c_int
      character(kind=c_char), intent(in) :: name(*), options(*)
      integer(c_int), value :: name_len, options_len
      integer(c_int), intent(out) :: ierr
    end subroutine
    subroutine c_write_ansys_zel(name, name_len, count1, count2, ierr) &
        bind(C, name='ZEL_WRITE_ANSYS_ZEL')
      import :: c_char, c_int
      character(kind=c_char), intent(in) :: name(*)
      integer(c_int), value :: name_len
      integer(c_int), intent(in) :: count1, count2
      integer(c_int), intent(out) :: ierr
    end subroutine
  end interface

contains

  subroutine zel_create_from_zel(name, ierr)
    character(len=*), intent(in) :: name
    integer(c_int), intent(out) :: ierr
    call c_create_from_zel(name, len(name), ierr)
  end subroutine

  subroutine zel_set_header(title, file_name, file_type, comment1, comment2, comment3, ierr)
    character(len=*), intent(in) :: title, file_name, file_type, comment1, comment2, comment3
    integer(c_int), intent(out) :: ierr
    call c_set_header(title, len(title), file_name, len(file_name), file_type, len(file_type), comment1, &
        len(comment1), comment2, len(comment2), comment3, len(comment3), ierr)
  end subroutine

  subroutine zel_set_units(mass, length, time, force, ierr)
    character(len=*), intent(in) :: mass, length, time, force
    integer(c_int), intent(out) :: ierr
    call c_set_units(mass, len(mass), length, len(length), time, len(time), force, len(force), ierr)
  end subroutine

  subroutine zel_set_loadcase_label(load_case, label, ierr)
    integer(c_int), intent(in) :: load_case
    character(len=*), intent(in) :: label
    integer(c_int), intent(out) :: ierr
    call c_set_loadcase_label(load_case, label, len(label), ierr)
  end subroutine

  subroutine zel_write_zel(name, ierr)
    character(len=*), intent(in) :: name
    integer(c_int), intent(out) :: ierr
    call c_write_zel(name, len(name), ierr)
  end subroutine

  subroutine zel_write_with_options(name, options, ierr)
    character(len=*), intent(in) :: name, options
    integer(c_int), intent(out) :: ierr
    call c_write_with_options(name, len(name), options, len(options), ierr)
  end subroutine

  subroutine zel_write_ansys_zel(name, count1, count2, ierr)
    character(len=*), intent(in) :: name
    integer(c_int), intent(in) :: count1, count2
    integer(c_int), intent(out) :: ierr
    call c_write_ansys_zel(name, len(name), count1, count2, ierr)
  end subroutine

end module zel
