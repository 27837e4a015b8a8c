foreach(name IN ITEMS views outcomes chain_sums marginals probability distribution measurement_members)
    velacamplix_concept(${name} FOLDER src/statevector/measurement)
endforeach()
