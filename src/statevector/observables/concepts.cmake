foreach(name IN ITEMS terms signed_sums pair_products pauli_values exact_values basis_change sampled_parity sampled_values
                      observable_members)
    file(GLOB present CONFIGURE_DEPENDS "${CMAKE_CURRENT_LIST_DIR}/${name}.*")
    if(present)
        velacamplix_concept(${name} FOLDER src/statevector/observables)
    endif()
endforeach()
